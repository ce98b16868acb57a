#pragma once

#include "sim/household.h"

#include <ctime>
#include <stdexcept>
#include <string>
#include <vector>

namespace sim {

// What somebody wrote down: a house in which nothing happens but what the scenario does.
struct Scenario {
    const char* name;
    const char* zone;
    const char* beginning; // in local time: "2026-03-02 12:00:00"
    void (*play)(Household& household);
};

// All of them, by theme.
std::vector<Scenario> scenarios();
std::vector<Scenario> clockScenarios();
std::vector<Scenario> rebootScenarios();
std::vector<Scenario> planScenarios();
std::vector<Scenario> storeScenarios();

// The moment of a local time of the zone that the process has: "2026-03-02 12:00:00". Of an hour that comes
// twice it is the first one.
std::time_t localTime(const std::string& text);

class Unexpected : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Throws Unexpected, with both numbers in its text.
void expectEqual(const std::string& what, long actual, long expected);
// The number in a row, after horad had the time that it takes for it.
void expectNumber(const Household& household, const std::string& table, int id, const std::string& column,
                  int expected);

} // namespace sim
