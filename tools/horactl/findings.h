#pragma once

#include "simulation/tables.h"
#include "timeplan/localmoment.h"
#include "timeplan/timeplan.h"
#include "timeplan/timeplantime.h"
#include "tools/horactl/check.h"

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

// The parts of check(), and what they share.
namespace tools::horactl {

using Findings = std::vector<Finding>;

// What is looked at: the tables with their rows in order, as horad reads them.
struct Inquiry {
    Inquiry(const Household& checked, const CheckInput& about);

    const Household& household;
    CheckInput input;
    orv::simulation::Tables tables;
};

// Each looks for its own kind, and adds what it finds.
void findInPlans(Inquiry& inquiry, Findings& findings);
void findInWlan(Inquiry& inquiry, Findings& findings);
void findInFrames(Inquiry& inquiry, Findings& findings);
void findInReboot(Inquiry& inquiry, Findings& findings);
void findInClockChanges(Inquiry& inquiry, Findings& findings);

// A cell as the store has it.
std::string valueOf(const velta::ValueList& row, const char* column);
int numberOf(const velta::ValueList& row, const char* column);
// The followed tables of plans, each once.
std::vector<std::string> planTablesOf(const Household& household);

// Any text can be a time, so that there may be more of them than a day has.
std::int64_t secondOfDay(const orv::horad::TimePlanTime& time);
// "07:05:00"
std::string clockText(const orv::horad::TimePlanTime& time);
// "Monday"; days count from Monday, which is 0.
const char* nameOfDay(std::size_t day);
// A text in a column of times that is no time of day, where it is one.
std::optional<Finding> findNoTime(const std::string& row, const velta::ValueList& cells, const char* column);

// What clocks show at a moment, in seconds as if they were in UTC. The moment itself where the C library
// can't say.
std::int64_t shownAt(std::time_t moment);
// The first midnight from a moment on behind which the zone's offset stays the same for so many days. The
// moment itself where the next year has none.
std::time_t quietMidnight(std::time_t from, int days);

} // namespace tools::horactl
