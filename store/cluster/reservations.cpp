#include "store/cluster/reservations.h"

#include "store/cluster/sharedoperations.h"
#include "store/storage/cells.h"

#include <algorithm>

namespace store {

namespace code = velta::protocol::code;

namespace {

constexpr auto strangersTime = std::chrono::minutes(1);
constexpr auto deletionTime = std::chrono::seconds(5);
constexpr std::size_t mostStrangers = 1000;

} // namespace

Reservations::Reservations(const Schema& schema, std::string device, GuardedTransactions& guarded,
                           Transact transact, GuardedTransactions::Now now)
    : schema_(schema),
      device_(std::move(device)),
      guarded_(guarded),
      transact_(std::move(transact)),
      now_(std::move(now)) {}

void Reservations::reserve(std::size_t table, Clock::time_point until, Sharing::Reserved done) {
    requests_.push_back({table, until, std::move(done)}); // settle() begins
}

void Reservations::giveBack(std::size_t table, std::int64_t id) {
    if (held_.erase({table, id}) == 0)
        return;
    // What fails here is freed after a minute.
    guarded_.run(Json::array({removal(table, id)}), now_() + deletionTime, [](const auto&) {});
}

Json Reservations::waitForFreedom(std::size_t table, std::int64_t id) const {
    Json rows = Json::array();
    if (holds(table, id))
        rows.push_back({{"Device", device_}});
    return waitFor("Reserved", whereIs(table, id), Json::array({"Device"}), std::move(rows));
}

Json Reservations::removal(std::size_t table, std::int64_t id) const {
    Json where = whereIs(table, id);
    where.push_back(equals("Device", device_));
    return removeFrom("Reserved", std::move(where));
}

void Reservations::disconnected() {
    strangers_.clear(); // nothing could be done about them; whoever is left is met again
    if (step_ != Step::Looking)
        return;
    step_ = Step::Idle;
    ++attempt_; // the connection may be the same one afterwards
}

void Reservations::settle(bool ready) {
    const Clock::time_point now = now_();
    while (!requests_.empty() && requests_.front().until <= now)
        finish(code::clusterUnreachable, 0);
    if (!ready)
        return;
    if (step_ == Step::Idle && !requests_.empty())
        look();
    for (auto stranger = strangers_.begin(); stranger != strangers_.end();) {
        if (now - stranger->second.seen < strangersTime) {
            ++stranger;
            continue;
        }
        guarded_.run(Json::array({removeFrom("Reserved", stranger->second.where)}), now + deletionTime,
                     [](const auto&) {});
        stranger = strangers_.erase(stranger);
    }
}

Reservations::Clock::time_point Reservations::nextDeadline() const {
    Clock::time_point next = Clock::time_point::max();
    for (const Request& request : requests_)
        next = std::min(next, request.until);
    for (const auto& [uuid, stranger] : strangers_)
        next = std::min(next, stranger.seen + strangersTime);
    return next;
}

// Which Ids the rows have, and which are reserved. The member may be behind: the attempt to write tells.
void Reservations::look() {
    step_ = Step::Looking;
    const std::string& table = nameOf(requests_.front().table);
    transact_(Json::array({Json{{"op", "select"},
                                {"table", table},
                                {"where", Json::array()},
                                {"columns", Json::array({"_uuid", idColumn})}},
                           selectReserved(requests_.front().table)}),
              [this, attempt = ++attempt_](const Json& result, const Json&) {
                  if (attempt == attempt_)
                      onLooked(result);
              });
}

void Reservations::onLooked(const Json& result) {
    const std::optional<std::int64_t> id = lowestFree(result);
    if (!id)
        return finish(code::clusterUnreachable, 0);
    if (*id > highestId)
        return finish({code::tooLarge, nameOf(requests_.front().table) + " has no further Id"}, 0);
    write(*id);
}

// None for a malformed answer.
std::optional<std::int64_t> Reservations::lowestFree(const Json& result) {
    if (!result.is_array() || result.size() < 2)
        return std::nullopt;
    const std::size_t table = requests_.front().table;
    std::set<std::int64_t> taken;
    for (const auto& [of, id] : held_)
        if (of == table)
            taken.insert(id);
    for (std::size_t i = 0; i < 2; ++i) {
        const Json* const rows = arrayAt(result[i], "rows");
        if (rows == nullptr)
            return std::nullopt;
        for (const Json& row : *rows) {
            const std::optional<std::int64_t> id = integerAt(row, idColumn);
            const std::optional<std::string> uuid = uuidAt(row, "_uuid");
            const std::string device = textAt(row, "Device");
            if (!id || !uuid || (i == 1 && device.empty()))
                return std::nullopt;
            if (i == 0 || device != device_) // what an earlier life of this device left can be taken
                taken.insert(*id);
            if (i == 1 && device != device_)
                noteStranger(*uuid, device);
        }
    }
    std::int64_t id = leastId;
    while (taken.count(id) != 0)
        ++id;
    return id;
}

void Reservations::noteStranger(const std::string& uuid, const std::string& device) {
    if (strangers_.size() >= mostStrangers)
        return;
    Json where = Json::array({equals("_uuid", Json::array({"uuid", uuid})), equals("Device", device)});
    strangers_.emplace(uuid, Stranger{std::move(where), now_()});
}

void Reservations::write(std::int64_t id) {
    step_ = Step::Writing;
    const Request& request = requests_.front();
    const std::string& table = nameOf(request.table);
    Json operations = Json::array(
        {waitFor(table, Json::array({equals(idColumn, id)}), Json::array({idColumn}), Json::array()),
         removal(request.table, id), // of an earlier life
         insertInto("Reserved", {{"Table", table}, {"Id", id}, {"Device", device_}})});
    guarded_.run(std::move(operations), request.until,
                 [this, id, attempt = ++attempt_](const GuardedTransactions::Report& report) {
                     if (attempt != attempt_)
                         return; // it took too long
                     if (report.outcome == GuardedTransactions::Outcome::Applied)
                         finish({}, id);
                     else if (report.outcome == GuardedTransactions::Outcome::Refused)
                         look(); // another device was faster, which ends with the request's time
                     else
                         finish(code::clusterUnreachable, 0);
                 });
}

void Reservations::finish(const Result& result, std::int64_t id) {
    const Request request = std::move(requests_.front());
    requests_.pop_front();
    step_ = Step::Idle;
    ++attempt_;
    if (result.ok())
        held_.insert({request.table, id});
    request.done(result, static_cast<std::uint32_t>(id));
}

// If the connection is lost before they are told, they are met when the commit is tried again.
void Reservations::meetStrangers(std::size_t table) {
    transact_(Json::array({selectReserved(table)}), [this](const Json& result, const Json&) {
        const Json* const rows = result.is_array() && !result.empty() ? arrayAt(result[0], "rows") : nullptr;
        if (rows == nullptr)
            return;
        for (const Json& row : *rows) {
            const std::optional<std::string> uuid = uuidAt(row, "_uuid");
            const std::string device = textAt(row, "Device");
            if (uuid && !device.empty() && device != device_)
                noteStranger(*uuid, device);
        }
    });
}

Json Reservations::selectReserved(std::size_t table) const {
    return {{"op", "select"},
            {"table", "Reserved"},
            {"where", Json::array({equals("Table", nameOf(table))})},
            {"columns", Json::array({"_uuid", "Id", "Device"})}};
}

Json Reservations::whereIs(std::size_t table, std::int64_t id) const {
    return Json::array({equals("Table", nameOf(table)), equals("Id", id)});
}

} // namespace store
