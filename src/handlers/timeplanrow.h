#pragma once

#include "timeplan/timeplan.h"
#include "velta/valuelist.h"

#include <string>

// A row of a table of weekly plans.
namespace orv::horad {

struct DayColumns {
    const char* start;
    const char* stop;
};

// Days count from Monday, which is 0.
const DayColumns& dayColumnsOf(std::size_t day);

// The plan that a row describes. Its mark is the "Activate" switch.
TimePlan planFrom(const velta::ValueList& row);

// The status that a plan is to have: an activating one is active inside its slots, a deactivating one outside
// of them.
inline bool wantedStatus(const TimePlan& plan, bool inSlot) {
    return inSlot == plan.marked();
}

// The key that a row's status is written by: three characters and no more. Ids of more than three digits are
// not supported, 1234 addresses the row 123. C1: sic
std::string statusKeyOf(int id);

} // namespace orv::horad
