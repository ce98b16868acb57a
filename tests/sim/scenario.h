#pragma once

#include "sim/household.h"

#include <ctime>
#include <memory>
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
std::vector<Scenario> storeScenarios();

// The moment of a local time of the zone that the process has: "2026-03-02 12:00:00". Of an hour that comes
// twice it is the first one.
std::time_t localTime(const std::string& text);

class Unexpected : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// All of these throw Unexpected, with what is and what should be in the text.
void expectEqual(const std::string& what, long actual, long expected);
void expectAtMost(const std::string& what, long actual, long most);
void expectNumber(const Household& household, const std::string& table, int id, const std::string& column,
                  int expected);
// The minutes of local time in which horad asked for a reboot: "2026-03-03T03:30".
void expectReboots(const Household& household, const std::vector<std::string>& minutes);

// Lets time pass until the clock would show that local time if it was right.
void runUntil(Household& household, const std::string& localTime);
// Long enough for horad to see what has changed, and to act on what it did itself.
void settle(Household& household);
// Every day at that time of day.
void rebootDaily(Household& household, const std::string& time);
// A frame of that window, in the time of the clock; its service has the same Id.
void insertFrame(Household& household, int id, const std::string& start, const std::string& end, int mode,
                 int maxRetries);
// The service of that Id fails a second after it was started, each time.
void insertFailingService(Household& household, int id);
// Counts horad's changes of that cell from now on. Lives as long as the household.
class Count {
public:
    Count(Household& household, const std::string& table, int id, const std::string& column);
    int changes() const { return *changes_; }

private:
    std::shared_ptr<int> changes_ = std::make_shared<int>(0);
};

} // namespace sim
