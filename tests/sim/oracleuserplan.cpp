#include "sim/oracleuserplan.h"

#include <algorithm>

namespace sim {

using orv::simulation::Tables;
using velta::ValueList;

namespace {

constexpr const char* planTable = "FirmwareUpdateTimePlan";

int numberIn(const ValueList& row, const char* column) {
    return row.getValue(column).getInteger();
}

// The hour of 24 is the last second of the day (C7).
TimeOfDay entryTime(int hour, int minute, int seconds) {
    return hour == 24 ? TimeOfDay{23, 59, 59} : TimeOfDay{hour, minute, seconds};
}

// Of entries with the same window the last one says whether it is enabled.
void add(std::vector<UserWindow>& plan, const UserWindow& window) {
    for (UserWindow& known : plan)
        if (known.weekDay == window.weekDay && known.start == window.start && known.stop == window.stop) {
            known.enabled = window.enabled;
            return;
        }
    plan.push_back(window);
}

std::vector<UserWindow> userPlan(const Tables& tables) {
    std::vector<UserWindow> plan;
    for (const ValueList& row : tables.rows(planTable))
        add(plan, {numberIn(row, "WeekDay"),
                   entryTime(numberIn(row, "StartTimeHour"), numberIn(row, "StartTimeMinute"), 0),
                   entryTime(numberIn(row, "EndTimeHour"), numberIn(row, "EndTimeMinute"), 59), // C5
                   numberIn(row, "Enable") != 0});
    return plan;
}

} // namespace

void UserPlanWatch::rebooted() {
    version_.reset();
    plans_.clear();
    read_.reset();
}

// A change alone is not noticed. It counts with the next reading, which may be any moment where something
// disturbs horad.
void UserPlanWatch::look(bool isRead) {
    constexpr std::size_t tooMany = 50;
    const Tables& tables = watch_.view.tables;
    const bool isFirst = !version_;
    if (version_ != tables.version(planTable)) {
        version_ = tables.version(planTable);
        read_.reset();
        if (plans_.size() >= tooMany)
            plans_.clear();
        else if (isFirst || !plans_.empty())
            plans_.push_back(userPlan(tables));
    }
    if (isRead) {
        read_ = userPlan(tables);
        readAt_ = watch_.passes();
    }
}

// Horad has read the plan for certain in the iteration after the change that made it read, and the plan was
// the same all the time.
void UserPlanWatch::settle() {
    if (!read_ || watch_.passes() < readAt_ + 2 || !watch_.isExact())
        return;
    plans_ = {*read_};
    read_.reset();
}

bool UserPlanWatch::mayAllow(const WallTime& now) const {
    return plans_.empty() ||
           std::any_of(plans_.begin(), plans_.end(), [&](const Plan& plan) { return isActive(plan, now); });
}

bool UserPlanWatch::doesAllow(const WallTime& now) const {
    return !plans_.empty() &&
           std::all_of(plans_.begin(), plans_.end(), [&](const Plan& plan) { return isActive(plan, now); });
}

} // namespace sim
