#include "sim/oraclereboot.h"

#include <algorithm>

namespace sim {

using orv::simulation::Tables;

namespace {

constexpr const char* settingsTable = "AutoReboot";
constexpr const char* commandTable = "Reboot";
constexpr std::uint64_t passesPerCheck = 25;
constexpr std::time_t longestWait = 3600; // seconds, by the clock
constexpr std::time_t slotLength = 59;    // seconds from its first to its last

// Field by field, as it is done on paper: the day stays the same (C22).
DaySlot slotAt(const TimeOfDay& start) {
    TimeOfDay stop = start;
    stop[2] += 59;
    if (stop[2] >= 60) {
        stop[1] += stop[2] / 60;
        stop[2] %= 60;
    }
    if (stop[1] >= 60) {
        stop[0] += stop[1] / 60;
        stop[1] %= 60;
    }
    if (stop[0] >= 24)
        stop[0] %= 24;
    return {start, stop};
}

} // namespace

bool RebootWatch::Settings::hasSlotsOf(const Settings& other) const {
    return enabled == other.enabled && weekDay == other.weekDay && time == other.time;
}

void RebootWatch::rebooted() {
    version_.reset();
    minimums_.clear();
    slots_ = {};
    slotsAreSure_ = true;
    lastRebootIsSure_ = true;
    unsettled_ = 0;
    waitsSince_.reset();
    triggered_ = false;
    ownCommit_ = false;
    lastTrigger_.reset();
    slot_.reset();
    wasExactOutside_ = false;
    aheadAtPass_ = 0;
    clockAtPass_ = 0;
    nearMinute_ = -1;
}

void RebootWatch::look() {
    const Tables& tables = watch_.view.tables;
    if (version_ == tables.version(settingsTable))
        return;
    const bool first = !version_;
    version_ = tables.version(settingsTable);
    const Settings before = settings_;
    takeSettings();
    minimums_.insert(settings_.minimum);
    lastRebootIsSure_ = true;
    if (!ownCommit_)
        lastTrigger_.reset(); // somebody else has written there: the moment may be another one
    ownCommit_ = false;
    if (!first && settings_.hasSlotsOf(before))
        return;
    ++unsettled_;
    enterSlots(settings_, false);
    nearMinute_ = -1;
}

void RebootWatch::takeSettings() {
    const Tables& tables = watch_.view.tables;
    settings_.enabled = tables.number(settingsTable, "Enable") != 0;
    settings_.weekDay = tables.number(settingsTable, "WeekDay") & 0xFF; // C21
    settings_.time = tables.text(settingsTable, "Time");
    settings_.lastReboot = tables.text(settingsTable, "LastReboot");
    settings_.minimum = static_cast<std::uint32_t>(tables.number(settingsTable, "MinimumRuntime"));
}

// Horad has read the settings as they are for certain, and those before them only if nothing came between.
void RebootWatch::settle() {
    if (minimums_.size() > 1)
        minimums_ = {settings_.minimum};
    if (unsettled_ == 0)
        return;
    if (unsettled_ > 1)
        slotsAreSure_ = false;
    unsettled_ = 0;
    enterSlots(settings_, true);
    nearMinute_ = -1;
}

// An empty time leaves the slots as they are, and auto reboot on.
void RebootWatch::enterSlots(const Settings& settings, bool forSure) {
    if (!settings.enabled) {
        if (forSure) {
            slots_ = {};
            slotsAreSure_ = true;
        }
        return;
    }
    if (settings.time.empty())
        return;
    const DaySlot slot = slotAt(timeOfDay(settings.time));
    const bool everyDay = settings.weekDay == 0;
    for (int day = 0; day < 7; ++day) {
        if (!everyDay && day != (settings.weekDay >= 7 ? 0 : settings.weekDay))
            continue;
        std::vector<DaySlot>& slots = slots_[static_cast<std::size_t>(day)];
        if (forSure)
            slots.clear();
        slots.push_back(slot);
    }
    if (forSure && everyDay)
        slotsAreSure_ = true;
}

bool RebootWatch::isInSlot(const WallTime& now) const {
    for (int day = 0; day < 7; ++day)
        for (const DaySlot& slot : slots_[static_cast<std::size_t>(day)])
            if (isInside(slot, day, now))
                return true;
    return false;
}

// Whether any of the seconds from then to now lies in a slot.
bool RebootWatch::wasInSlotSince(std::time_t moment) const {
    for (std::time_t second = watch_.clock(); second >= moment; --second)
        if (isInSlot(wallTime(second)))
            return true;
    return false;
}

// A last reboot in the future holds nothing back (C23).
bool RebootWatch::mayLastRebootHold(const std::string& text, std::uint32_t minimum) const {
    return !text.empty() && !doesLastRebootAllow(text, minimum);
}

// For certain.
bool RebootWatch::doesLastRebootAllow(const std::string& text, std::uint32_t minimum) const {
    if (text.empty())
        return true;
    const std::vector<std::time_t> moments = momentsOf(text);
    return !moments.empty() && std::all_of(moments.begin(), moments.end(), [&](std::time_t moment) {
        const std::time_t elapsed = watch_.clock() - moment;
        return elapsed <= 0 || elapsed > static_cast<std::time_t>(minimum);
    });
}

bool RebootWatch::doesNothingHold() const {
    return settings_.enabled && slotsAreSure_ && lastRebootIsSure_ && !watch_.view.call &&
           watch_.view.machine.uptime() >= settings_.minimum &&
           doesLastRebootAllow(settings_.lastReboot, settings_.minimum);
}

void RebootWatch::committed(const Changes& changes) {
    bool stamped = false;
    bool commanded = false;
    std::string lastReboot;
    for (const Tables::Change& change : changes) {
        commanded = commanded || change.table == commandTable;
        if (change.table == settingsTable) {
            stamped = true;
            lastReboot = change.before.getText();
        }
    }
    ownCommit_ = stamped;
    look();
    if (!stamped && !commanded)
        return;
    triggered_ = true;
    judgeAlways();
    judgeTrigger(stamped ? lastReboot : settings_.lastReboot);
    judgeWrites();
    judgeRepetition(settings_.minimum);
    lastTrigger_ = Trigger{watch_.clock(), clockAhead()};
}

// Whatever disturbs horad: the minimum holds, and the decision fell in this iteration. Whoever waits for his
// transaction may be late for a slot, and a call may have begun, or auto reboot been switched off.
void RebootWatch::judgeAlways() {
    constexpr std::time_t longestSearch = 300; // seconds
    const unsigned uptime = watch_.view.machine.uptime();
    if (!minimums_.empty() && uptime < *minimums_.begin())
        watch_.violated("a reboot was triggered " + std::to_string(uptime) +
                        " s after the start, before the minimum of " + std::to_string(*minimums_.begin()) +
                        " s");
    const bool isKnown = aheadAtPass_ == clockAhead() && watch_.clock() - clockAtPass_ <= longestSearch;
    if (isKnown && !waitsSince_ && !wasInSlotSince(clockAtPass_))
        watch_.violated("a reboot was triggered outside its slots, and it was not waited for");
}

void RebootWatch::judgeTrigger(const std::string& lastReboot) {
    if ((watch_.passes() + 1) % passesPerCheck != 0)
        watch_.suspected("a reboot was triggered in iteration " + std::to_string(watch_.passes() + 1) +
                         ", and every 25th decides");
    if (!settings_.enabled)
        watch_.suspected("a reboot was triggered while auto reboot was off");
    if (watch_.view.call)
        watch_.suspected("a reboot was triggered during a call");
    if (!waitsSince_ && !isInSlot(watch_.wall()))
        watch_.suspected("a reboot was triggered outside its slots, and it was not waited for");
    const std::vector<std::time_t> moments = momentsOf(lastReboot);
    if (mayLastRebootHold(lastReboot, settings_.minimum) && moments.size() == 1)
        watch_.suspected("a reboot was triggered less than the minimum of " +
                         std::to_string(settings_.minimum) + " s after the last one, " + lastReboot);
}

void RebootWatch::judgeWrites() {
    const Tables& tables = watch_.view.tables;
    if (!tables.rows(commandTable).empty() && tables.number(commandTable, "Trigger") != 1)
        watch_.suspected("Reboot: Trigger 1 was expected with the moment of the reboot; it is " +
                         std::to_string(tables.number(commandTable, "Trigger")));
    const std::string now = isoText(watch_.clock());
    if (!tables.rows(settingsTable).empty() && tables.text(settingsTable, "LastReboot") != now)
        watch_.suspected("AutoReboot: LastReboot '" + now + "' was expected with the trigger; it is '" +
                         tables.text(settingsTable, "LastReboot") + "'");
}

// The minimum is longer than the slot, the clock was not set, and nobody took the moment away.
void RebootWatch::judgeRepetition(std::uint32_t minimum) {
    if (!lastTrigger_ || lastTrigger_->clockAhead != clockAhead() || minimum <= slotLength)
        return;
    if (watch_.clock() - lastTrigger_->at <= slotLength)
        watch_.suspected("a reboot was triggered twice in one slot, first at " + shown(lastTrigger_->at));
}

void RebootWatch::passed() {
    look();
    if (watch_.isExact())
        settle();
    const bool decides = watch_.passes() % passesPerCheck == 0;
    if (decides && watch_.failed())
        lastRebootIsSure_ = false; // a moment that could not be committed counts all the same (C24)
    if (decides)
        judgePass();
    watchSlot();
    triggered_ = false;
    clockAtPass_ = watch_.clock();
    aheadAtPass_ = clockAhead();
}

// By the letter, the limit of an hour is looked at only while the line is busy: an hour that is over when the
// call ends does not keep the reboot back, and while auto reboot is off, the wait goes on unseen.
void RebootWatch::judgePass() {
    const bool inSlot = isInSlot(watch_.wall());
    if (!watch_.isExact()) {
        if (inSlot)
            waitsSince_ = watch_.clock();
        waitIsSure_ = false;
        return;
    }
    if (!settings_.enabled)
        return;
    if (watch_.view.call) {
        if (inSlot) {
            waitsSince_ = watch_.clock();
            waitIsSure_ = slotsAreSure_;
        } else if (waitsSince_ && watch_.clock() - *waitsSince_ > longestWait) {
            waitsSince_.reset();
        }
        return;
    }
    if (!triggered_ && (inSlot || (waitsSince_ && waitIsSure_)) && doesNothingHold())
        watch_.violated(std::string("a reboot was due, ") +
                        (inSlot ? "in its slot" : "at the end of a call since " + shown(*waitsSince_)) +
                        ", and it was not triggered");
    waitsSince_.reset();
}

// Whoever counts the iterations wrongly may miss a slot: it is watched from its first second to its last.
void RebootWatch::watchSlot() {
    const WallTime now = watch_.wall();
    const std::time_t minute = watch_.clock() - now.time[2];
    if (minute != nearMinute_) {
        nearMinute_ = minute;
        nearSlot_ = isInSlot({now.weekDay, {now.time[0], now.time[1], 0}}) ||
                    isInSlot({now.weekDay, {now.time[0], now.time[1], 59}});
    }
    if (!nearSlot_ || !isInSlot(now)) {
        if (slot_)
            leaveSlot();
        wasExactOutside_ = watch_.isExact();
        return;
    }
    if (!slot_)
        slot_ = SlotWatch{watch_.view.machine.passed(), wasExactOutside_};
    slot_->nothingAgainst = slot_->nothingAgainst && watch_.isExact() && !triggered_ && doesNothingHold();
    wasExactOutside_ = false;
}

void RebootWatch::leaveSlot() {
    constexpr Microseconds whole = (slotLength - 2) * orv::simulation::Machine::second;
    if (slot_->nothingAgainst && watch_.isExact() && watch_.view.machine.passed() - slot_->entered >= whole)
        watch_.violated("a slot of the reboot is over, nothing spoke against it, and it was not triggered");
    slot_.reset();
}

} // namespace sim
