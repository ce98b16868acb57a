#pragma once

#include "tools/horactl/household.h"

#include <ctime>
#include <string>
#include <vector>

// What is likely meant otherwise than horad understands it.
namespace tools::horactl {

struct Finding {
    std::string row;     // "WlanTimePlans.2", or "AutoReboot" of a single-row table
    std::string column;  // whose cell is looked at
    std::string value;   // what it holds, as the store has it
    std::string meaning; // what horad makes of it
    std::string meant;   // what was probably meant
};

struct CheckInput {
    std::time_t now;          // seconds since the epoch: the year from here on is looked at
    unsigned repeatDelay = 0; // seconds between two runs of a service; 0 for horad's default
};

// In the order of the tables, plans first, and of their rows. Of the days around the zone's next changes, and
// of the reboots of a few weeks, horad is let live through some: no Forecast may live meanwhile.
std::vector<Finding> check(const Household& household, const CheckInput& input);

// For a person, three lines each; one line that says so where there is none.
std::string findingsAsText(const std::vector<Finding>& findings);
// One object a line.
std::string findingsAsJson(const std::vector<Finding>& findings);

} // namespace tools::horactl
