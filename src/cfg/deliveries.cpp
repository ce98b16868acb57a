#include "cfg/deliveries.h"

#include <algorithm>
#include <set>
#include <utility>

namespace orv::cfg {

namespace code = velta::protocol::code;

namespace {

// A reading that failed is tried again in each of the next deliveries. After this many failures there must be
// a lasting reason, such as a missing table: from then on the reading rests for some deliveries after each
// try, so that it does not fill the log.
constexpr unsigned eagerTries = 10;
constexpr unsigned patientRest = 29;

const std::string allTables; // the table name of a reading of everything

using Codes = std::map<std::string, int>; // of the last failure, by table

// A missing table or row is not waited for: if it ever comes, a notice tells.
bool isAbsent(int failure) {
    return failure == code::unknownTable || failure == code::noSuchRow;
}

bool areAllAbsent(const Codes& failures) {
    return std::all_of(failures.begin(), failures.end(),
                       [](const auto& failure) { return isAbsent(failure.second); });
}

} // namespace

Deliveries::Deliveries(common::IConfigClient& store, bool mergeChanges, const std::string& logModule)
    : log_(logModule.c_str(), "deliveries"), client_(store, logModule), mergeChanges_(mergeChanges) {}

void Deliveries::add(IConfigHandler* handler) {
    followers_.push_back(Follower{handler, {}});
}

velta::NameList Deliveries::tables() {
    std::set<std::string> names;
    for (Follower& follower : followers_) {
        follower.tables.clear();
        follower.handler->getTables(follower.tables);
        names.insert(follower.tables.begin(), follower.tables.end());
    }
    return velta::NameList(names.begin(), names.end());
}

void Deliveries::everythingChanged() {
    readings_.clear();
    for (std::size_t follower = 0; follower < followers_.size(); ++follower)
        readings_.push_back(Reading{follower, allTables, 0, 0, true});
}

void Deliveries::changed(const std::string& table) {
    noticed_ = true;
    makeDue(table);
}

void Deliveries::makeDue(const std::string& table) {
    for (std::size_t follower = 0; follower < followers_.size(); ++follower)
        if (follows(follower, table))
            addReading(follower, table);
}

bool Deliveries::follows(std::size_t follower, const std::string& table) const {
    const std::list<std::string>& tables = followers_[follower].tables;
    return std::find(tables.begin(), tables.end(), table) != tables.end();
}

bool Deliveries::readingOfEverythingIsDue() const {
    return std::any_of(readings_.begin(), readings_.end(),
                       [](const Reading& reading) { return reading.isAwaited; });
}

void Deliveries::addReading(std::size_t follower, const std::string& table) {
    Reading* const due = findReading(follower, table);
    if (due != nullptr)
        due->rest = 0; // the change may have removed the cause of the failure
    if (due == nullptr || !mergeChanges_)
        readings_.push_back(Reading{follower, table});
}

// A reading of everything counts as one of each table.
Deliveries::Reading* Deliveries::findReading(std::size_t follower, const std::string& table) {
    const auto found = std::find_if(readings_.begin(), readings_.end(), [&](const Reading& reading) {
        return reading.follower == follower && (reading.table == table || reading.table == allTables);
    });
    return found != readings_.end() ? &*found : nullptr;
}

void Deliveries::deliver() {
    if (client_.takeCommitted())
        pace_.committed();
    pace_.beginIteration(std::exchange(noticed_, false));
    for (Follower& follower : followers_)
        follower.readingFailed = false;
    for (Reading& reading : std::exchange(readings_, {})) {
        if (reading.rest > 0) {
            --reading.rest;
            tryLater(reading);
        } else {
            read(reading);
        }
    }
    for (Follower& follower : followers_)
        if (follower.actionDue && !follower.readingFailed)
            act(follower);
}

void Deliveries::read(Reading& reading) {
    Follower& follower = followers_[reading.follower];
    const FailureProbe probe(client_);
    const bool answer = follower.handler->configChanged(client_, reading.table);
    log_.debug("configChanged(\"%s\") of handler %zu returned %s", reading.table.c_str(), reading.follower,
               answer ? "true" : "false");
    follower.actionDue = true;
    if (!probe.failed())
        return;
    ++reading.failures;
    reading.rest = reading.failures < eagerTries ? 0 : patientRest;
    readAgain(reading, probe);
}

// If anything failed that does not concern one of the handler's tables, everything is read again.
void Deliveries::readAgain(Reading reading, const FailureProbe& probe) {
    const Codes& failed = probe.failedTables();
    const auto isFollowed = [&](const auto& table) { return follows(reading.follower, table.first); };
    const bool isAwaited = reading.isAwaited;
    if (reading.table == allTables && !probe.failedBeyondTables() &&
        std::all_of(failed.begin(), failed.end(), isFollowed)) {
        for (const auto& [table, failure] : failed) {
            reading.table = table;
            reading.isAwaited = isAwaited && !isAbsent(failure);
            tryLater(reading);
        }
        return;
    }
    reading.isAwaited = isAwaited && (probe.failedBeyondTables() || !areAllAbsent(failed));
    tryLater(reading);
}

void Deliveries::tryLater(const Reading& reading) {
    followers_[reading.follower].readingFailed = true;
    if (findReading(reading.follower, reading.table) == nullptr)
        readings_.push_back(reading);
}

void Deliveries::act(Follower& follower) {
    const FailureProbe probe(client_);
    follower.handler->process(client_);
    follower.actionDue = probe.failed();
}

void Deliveries::pass(const std::function<void(common::IConfigClient&)>& run) {
    const FailureProbe probe(client_);
    run(client_);
    for (const std::string& table : probe.uncommittedTables())
        makeDue(table);
}

} // namespace orv::cfg
