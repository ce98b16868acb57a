#include "sim/oracleservices.h"

#include <algorithm>

namespace sim {

using orv::simulation::Tables;
using velta::ValueList;

namespace {

constexpr const char* frameTable = "TimeFrame";
constexpr const char* serviceTable = "FileTransfer";
constexpr const char* daemonTable = "wexd";
constexpr int whenIdle = 3; // the window mode
constexpr std::int64_t second = 1'000'000;

int numberIn(const ValueList& row, const char* column) {
    return row.getValue(column).getInteger();
}

bool isMode(int mode) {
    return mode == 1 || mode == 2 || mode == 3;
}

std::string nameOf(int frame) {
    return std::string(frameTable) + " " + std::to_string(frame);
}

} // namespace

bool ServiceWatch::Frame::isSameAs(const Frame& other) const {
    return start == other.start && end == other.end && mode == other.mode && message == other.message &&
           limit == other.limit;
}

ServiceWatch::Frame ServiceWatch::frameFrom(const ValueList& row) {
    Frame frame;
    frame.start = static_cast<std::uint32_t>(numberIn(row, "TimeFrameStart"));
    frame.end = static_cast<std::uint32_t>(numberIn(row, "TimeFrameEnd"));
    frame.mode = numberIn(row, "WindowMode");
    frame.message = row.getValue("UserMessage").getText();
    frame.limit = std::max(numberIn(row, "MaxRetries"), -1);
    frame.services = {{row.getValue("Servicetable").getText(), numberIn(row, "ServicetableId")}};
    frame.counter = static_cast<std::uint32_t>(numberIn(row, "RunCounter"));
    return frame;
}

void ServiceWatch::rebooted() {
    frames_.clear();
    plan_.rebooted();
    looked_ = false;
    daemonWasSet_ = false;
    daemonVersion_ = watch_.view.tables.version(daemonTable);
}

// Takes over what others changed; horad has read it, or is going to.
void ServiceWatch::look() {
    const Tables& tables = watch_.view.tables;
    if (looked_ && version_ == tables.version())
        return;
    version_ = tables.version();
    const bool first = !looked_;
    const bool framesChanged = first || frameVersion_ != tables.version(frameTable);
    const bool servicesChanged = first || serviceVersion_ != tables.version(serviceTable);
    if (framesChanged)
        readFrames();
    plan_.look(framesChanged || servicesChanged);
    looked_ = true;
    frameVersion_ = tables.version(frameTable);
    serviceVersion_ = tables.version(serviceTable);
}

void ServiceWatch::readFrames() {
    std::map<int, Frame> loaded;
    for (const ValueList& row : watch_.view.tables.rows(frameTable))
        if (isMode(numberIn(row, "WindowMode")))
            loaded[orv::simulation::idOf(row)] = frameFrom(row);
    for (auto& [id, frame] : frames_) {
        const bool comesBack = frame.isGone && loaded.count(id) != 0;
        if (comesBack) {
            frame.counterIsDoubted = true;
            frame.runs = 0;
        }
        frame.isGone = loaded.count(id) == 0;
    }
    for (auto& [id, frame] : loaded) {
        const auto found = frames_.find(id);
        if (found == frames_.end() || !found->second.isSameAs(frame)) {
            frames_[id] = frame;
            continue;
        }
        Frame& known = found->second;
        known.services.insert(frame.services.begin(), frame.services.end());
        if (known.isFresh && known.counter != frame.counter)
            known.counterIsDoubted = true;
    }
}

void ServiceWatch::committed(const Changes& changes) {
    look();
    std::set<int> ran;
    for (const Tables::Change& change : changes)
        if (change.table == frameTable && change.column == "RunCounter") {
            counted(change.id, changes, change);
            ran.insert(change.id);
        }
    judgeStarts(ran, changes);
    for (const Tables::Change& change : changes)
        if (change.column == "Status")
            judgeStatus(change, ran);
}

void ServiceWatch::counted(int id, const Changes& changes, const Tables::Change& change) {
    ++runs_;
    // The first iteration only enables the service daemon.
    if (watch_.passes() == 0)
        watch_.violated(nameOf(id) + " ran in the first iteration of horad");
    const auto known = frames_.find(id);
    if (known == frames_.end()) {
        watch_.suspectedAsRead(nameOf(id) + " ran, and its mode is none that is known");
        return;
    }
    const auto counter = static_cast<std::uint32_t>(change.after.getInteger());
    Frame& frame = known->second;
    if (frame.isNew)
        frame.counter = static_cast<std::uint32_t>(change.before.getInteger());
    frame.isNew = false;
    ++frame.runs;
    judgeRun(id, frame, counter, changes);
    frame.counter = counter;
    frame.counterIsDoubted = false;
    frame.runsUntil.reset();
}

void ServiceWatch::judgeRun(int id, const Frame& frame, std::uint32_t counter, const Changes& changes) {
    if (!frame.counterIsDoubted && counter != frame.counter + 1)
        watch_.suspectedAsRead(nameOf(id) + ": RunCounter " + std::to_string(frame.counter + 1) +
                               " was expected; it is " + std::to_string(counter));
    // A limit of n allows n + 1 runs: the counter is compared before the run (C8).
    if (frame.limit >= 0 && counter - 1 > static_cast<std::uint32_t>(frame.limit))
        watch_.suspectedAsRead(nameOf(id) + " ran for the " + std::to_string(counter) +
                               "th time, above its MaxRetries " + std::to_string(frame.limit));
    const std::optional<std::string> reason = reasonAgainst(frame, changes);
    if (reason)
        watch_.suspectedAsRead(nameOf(id) + " ran " + *reason);
}

// Why that frame should not have run now.
std::optional<std::string> ServiceWatch::reasonAgainst(const Frame& frame, const Changes& changes) const {
    const std::int64_t now = watch_.view.machine.now();
    if (frame.isGone || now < frame.start * second || now > frame.end * second)
        return "outside its window " + shown(frame.start) + " to " + shown(frame.end);
    // A run for each moment that came, however late. In the last interval the moment stays the same, and runs
    // may follow each other at each pass.
    const std::int64_t interval = watch_.view.repeatInterval;
    const std::int64_t latest = std::max(now, frame.latestClock);
    const std::int64_t moments =
        (latest - frame.start * second + interval * second - 1) / (interval * second);
    const std::int64_t last = (frame.end - frame.start) / interval; // counted from 0
    if (moments <= last && frame.runs > moments)
        return std::to_string(frame.runs) + " times, and only " + std::to_string(moments) +
               " runs were due since it began";
    const bool mayStart = std::any_of(frame.services.begin(), frame.services.end(), [&](const Service& one) {
        const ServiceRow row = before(one, changes);
        // The states of other tables are not read: what was left there does not count (C14).
        return one.first != serviceTable || !row.isComplete || row.canStart();
    });
    if (!mayStart)
        return std::string("while its service was running or had succeeded");
    return lineAgainst(frame);
}

std::optional<std::string> ServiceWatch::lineAgainst(const Frame& frame) const {
    if (frame.mode != whenIdle)
        return std::nullopt;
    if (watch_.view.call)
        return "during a call";
    if (watch_.view.stream)
        return "during a stream";
    const bool hasPlan = std::all_of(frame.services.begin(), frame.services.end(),
                                     [](const Service& service) { return service.first == serviceTable; });
    if (hasPlan && !plan_.mayAllow(watch_.wall()))
        return "outside the user's plan";
    return std::nullopt;
}

ServiceWatch::ServiceRow ServiceWatch::before(const Service& service, const Changes& changes) const {
    ServiceRow result;
    for (const ValueList& row : watch_.view.tables.rows(service.first)) {
        if (orv::simulation::idOf(row) != service.second)
            continue;
        result = {true, row.hasValue("Status") && row.hasValue("Result"), numberIn(row, "Status"),
                  numberIn(row, "Result")};
        break;
    }
    for (const Tables::Change& change : changes)
        if (change.table == service.first && change.id == service.second && change.column == "Status")
            result.status = change.before.getInteger();
    return result;
}

ServiceWatch::Service ServiceWatch::serviceOfRow(int id) const {
    const Tables& tables = watch_.view.tables;
    return {tables.text(frameTable, "Servicetable", id), tables.number(frameTable, "ServicetableId", id)};
}

// What ran was started, if it could be: the service that the row names now, whatever it was when the frame
// was read (C11). Of frames with the same service Id the last one names its table.
void ServiceWatch::judgeStarts(const std::set<int>& counted, const Changes& changes) {
    std::map<int, std::string> tables;
    for (const int id : counted)
        tables[serviceOfRow(id).second] = serviceOfRow(id).first;
    for (const auto& [id, table] : tables) {
        const ServiceRow row = before({table, id}, changes);
        const Tables& store = watch_.view.tables;
        if (row.exists && row.isComplete && row.canStart() && store.number(table, "Status", id) != 1)
            watch_.suspectedAsRead(table + " " + std::to_string(id) +
                                   ": Status 1 was expected after a run; it is " +
                                   std::to_string(store.number(table, "Status", id)));
        if (row.exists && row.isComplete && table == serviceTable && !store.rows(daemonTable).empty() &&
            store.number(daemonTable, "Enable") == 0)
            watch_.suspectedAsRead("wexd: Enable 1 was expected after the start of a service; it is 0");
    }
}

void ServiceWatch::judgeStatus(const Tables::Change& change, const std::set<int>& counted) {
    const std::string name = change.table + " " + std::to_string(change.id);
    const ServiceRow row = before({change.table, change.id}, {change});
    if (change.after.getInteger() != 1 || !row.canStart())
        watch_.violated(name + ": Status was changed from " + change.before.getText() + " to " +
                        change.after.getText() + ", and is only to be set to 1 where a service can start");
    for (const int id : counted)
        if (serviceOfRow(id) == Service{change.table, change.id})
            return;
    // The counter may have stood at the right number already, by somebody else's hand.
    for (const auto& [id, frame] : frames_)
        if (serviceOfRow(id) == Service{change.table, change.id} &&
            watch_.view.tables.number(frameTable, "RunCounter", id) == static_cast<int>(frame.counter + 1))
            return;
    watch_.suspectedAsRead(name + " was started, and no run of a frame was counted for it");
}

void ServiceWatch::passed() {
    look();
    plan_.settle();
    judgeDaemon();
    const Microseconds now = watch_.view.machine.now();
    for (auto it = frames_.begin(); it != frames_.end();) {
        Frame& frame = it->second;
        if (frame.isGone && watch_.isExact()) {
            it = frames_.erase(it);
            continue;
        }
        settle(frame);
        judgeLateness(it->first, frame);
        frame.latestClock = std::max(frame.latestClock, now);
        ++it;
    }
}

// The first iteration enables it, whether there is something to do or not; a write that failed is not tried
// again.
void ServiceWatch::judgeDaemon() {
    if (daemonWasSet_)
        return;
    const Tables& tables = watch_.view.tables;
    daemonWasSet_ = watch_.failed() || daemonVersion_ != tables.version(daemonTable) ||
                    tables.number(daemonTable, "Enable") != 0 || tables.rows(daemonTable).empty();
    if (!daemonWasSet_ && watch_.isExact())
        watch_.violated("wexd: Enable 1 was expected after the first iteration of horad; it is 0");
}

// A frame whose row can't be read once begins anew when it can (C12): where something failed, nobody knows.
void ServiceWatch::settle(Frame& frame) {
    frame.isNew = false;
    if (watch_.isExact())
        frame.isFresh = false;
    if (watch_.failed()) {
        frame.counterIsDoubted = true;
        frame.runs = 0;
    }
}

// Nothing speaks against a run now: it is to come with the next moment, which is an interval later than the
// latest one that the clock has shown, or earlier.
bool ServiceWatch::isDue(int id, const Frame& frame) const {
    const Microseconds now = watch_.view.machine.now();
    if (now <= frame.start * second || now > frame.end * second)
        return false;
    const auto inRow = static_cast<std::uint32_t>(watch_.view.tables.number(frameTable, "RunCounter", id));
    // A run whose frame could not be read counts all the same, and may have been the last.
    if (frame.limit >= 0 &&
        (frame.counterIsDoubted || std::max(frame.counter, inRow) > static_cast<std::uint32_t>(frame.limit)))
        return false;
    for (const Service& service : frame.services) {
        const ServiceRow row = before(service, {});
        if (service.first != serviceTable || (row.exists && (!row.isComplete || !row.canStart())))
            return false;
    }
    if (frame.mode != whenIdle)
        return true;
    return !watch_.view.call && !watch_.view.stream && plan_.doesAllow(watch_.wall());
}

// A run is not seen where somebody else's hand has put the number there already: the next one is.
void ServiceWatch::judgeLateness(int id, Frame& frame) {
    const Microseconds now = watch_.view.machine.now();
    if (!watch_.isExact() || !isDue(id, frame)) {
        frame.runsUntil.reset();
        return;
    }
    const int counter = watch_.view.tables.number(frameTable, "RunCounter", id);
    const bool isSeen = !frame.counterIsDoubted && static_cast<std::uint32_t>(counter) == frame.counter;
    if (!frame.runsUntil)
        frame.runsUntil = std::max(frame.latestClock, now) +
                          Microseconds{watch_.view.repeatInterval} * second * (isSeen ? 1 : 2);
    if (now <= *frame.runsUntil)
        return;
    watch_.violated(nameOf(id) + " was to run by " +
                    shown(static_cast<std::time_t>(*frame.runsUntil / second)) +
                    ", and nothing spoke against it; its RunCounter is still " + std::to_string(counter) +
                    ", its mode " + std::to_string(frame.mode) + ", its window " + shown(frame.start) +
                    " to " + shown(frame.end) + ", its MaxRetries " + std::to_string(frame.limit));
}

} // namespace sim
