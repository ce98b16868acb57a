#include "store/server/readings.h"

#include "orv/error.h"
#include "velta/protocol/frame.h"

#include <algorithm>
#include <new>
#include <utility>

namespace store {

namespace code = velta::protocol::code;
using Result = Database::Result;

static_assert(Readings::Limits().piece <= velta::protocol::frameLimit / 4,
              "the row with which a piece ends still fits into the message (see schema.cpp)");

Answer Readings::begin(Session& session, std::uint32_t sequence, const std::string& table,
                       Database::View view) {
    Rows rows;
    bool complete = false;
    if (Result result = database_.readSmall(table, view, limits_.piece, rows, complete); !result.ok())
        return result;
    if (complete) {
        const std::uint32_t total = rows.count;
        return Answer::piece(std::move(rows), total, true);
    }
    ORV_ASSERT(!has(session.id())); // a session is paused while it has a reading
    Reading& reading =
        readings_.emplace(session.id(), Reading{&session, sequence, table, view, nullptr, {}, 0, {}})
            .first->second;
    session.pause();
    if (view == Database::View::OpenTransaction)
        start(reading); // needs no snapshot
    return Answer(Answer::When::Later);
}

bool Readings::isGivenOut(ClientId client) const {
    const auto found = readings_.find(client);
    return found != readings_.end() && found->second.given > 0;
}

bool Readings::canGoOn(ClientId client) const {
    const auto found = readings_.find(client);
    return found != readings_.end() && (found->second.rows || !found->second.failure.ok());
}

Answer Readings::goOn(ClientId client) {
    Reading& reading = readings_.at(client);
    if (!reading.failure.ok())
        return reading.failure;
    Rows rows;
    if (Result result = reading.rows->next(rows, limits_.piece); !result.ok())
        return result;
    rows.columns = reading.rows->columns();
    const std::uint32_t total = reading.rows->total();
    reading.given += rows.count;
    if (reading.given > total || (rows.count == 0 && reading.given < total))
        return Result(code::storageFailed, reading.table + " has other rows than it counted");
    return Answer::piece(std::move(rows), total, reading.given == total);
}

void Readings::fail(ClientId client, Result why) {
    Reading& reading = readings_.at(client);
    reading.rows.reset();
    reading.failure = std::move(why);
}

void Readings::forget(ClientId client) {
    end(client);
    hadSnapshot_.erase(client);
}

bool Readings::admit(Clock::time_point now) {
    bool any = false;
    while (database_.canBeginReading() && !database_.logIsLong()) {
        Reading* const reading = nextToAdmit();
        if (reading == nullptr)
            break;
        hadSnapshot_[reading->session->id()] = now;
        reading->since = now;
        start(*reading);
        any = true;
    }
    return any;
}

// A client that had no snapshot yet ranks by the time when it connected.
Readings::Reading* Readings::nextToAdmit() {
    Reading* next = nullptr;
    Clock::time_point least = Clock::time_point::max();
    for (auto& [client, reading] : readings_) {
        if (reading.rows || !reading.failure.ok())
            continue;
        const auto had = hadSnapshot_.find(client);
        const Clock::time_point rank = had == hadSnapshot_.end() ? reading.session->since() : had->second;
        if (rank < least) {
            least = rank;
            next = &reading;
        }
    }
    return next;
}

void Readings::start(Reading& reading) {
    try {
        reading.failure = database_.beginReading(reading.table, reading.view, reading.rows);
    } catch (const std::bad_alloc&) {
        reading.failure = code::outOfMemory;
    }
    if (!reading.failure.ok())
        reading.rows.reset();
}

void Readings::expire(Clock::time_point now) {
    for (auto& [client, reading] : readings_) {
        if (!reading.rows || !reading.rows->holdsSnapshot())
            continue;
        if (now >= reading.since + limits_.snapshot || database_.logIsTooLong())
            takeSnapshotBack(reading);
    }
}

void Readings::takeSnapshotBack(Reading& reading) {
    const std::size_t others = kept();
    const std::size_t room = limits_.kept > others ? limits_.kept - others : 0;
    const Result result = keepRest(*reading.rows, room);
    if (!result.ok())
        fail(reading.session->id(), result); // frees the rows that were kept so far
    if (result.code() == code::tooLarge)
        reading.session->closeFor(
            "is too slow to take its answer, and the rest is too large to be kept for it");
}

Result Readings::keepRest(TableReading& rows, std::size_t most) {
    try {
        return rows.keepRest(most);
    } catch (const std::bad_alloc&) {
        return code::outOfMemory;
    }
}

std::size_t Readings::kept() const {
    std::size_t bytes = 0;
    for (const auto& [client, reading] : readings_)
        bytes += reading.rows ? reading.rows->keptBytes() : 0;
    return bytes;
}

Clock::time_point Readings::nextDeadline() const {
    Clock::time_point next = Clock::time_point::max();
    for (const auto& [client, reading] : readings_)
        if (reading.rows && reading.rows->holdsSnapshot())
            next = std::min(next, reading.since + limits_.snapshot);
    return next;
}

} // namespace store
