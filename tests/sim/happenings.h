#pragma once

#include "sim/household.h"
#include "sim/random.h"

#include <functional>
#include <memory>
#include <vector>

namespace sim {

// Something that goes on in a house. It furnishes the house with what it needs, and puts on the timetable
// what happens later. Everything that it does is the chance of its own numbers.
struct Happening {
    const char* name;
    void (*begin)(Household& household, const std::shared_ptr<Random>& random);
};

// All that goes on in the house of a seed.
const std::vector<Happening>& happenings();

// The owner at his tables.
void keepPlans(Household& household, const std::shared_ptr<Random>& random);
void keepWlan(Household& household, const std::shared_ptr<Random>& random);
void keepAutoReboot(Household& household, const std::shared_ptr<Random>& random);
void keepTimeframes(Household& household, const std::shared_ptr<Random>& random);
void keepUserPlan(Household& household, const std::shared_ptr<Random>& random);
// Who talks and who watches.
void haveCalls(Household& household, const std::shared_ptr<Random>& random);
void haveStreams(Household& household, const std::shared_ptr<Random>& random);
// Just before the reboot is due, and for about as long as it waits.
void haveCallsAtReboots(Household& household, const std::shared_ptr<Random>& random);
// What runs when it is started.
void runServices(Household& household, const std::shared_ptr<Random>& random);
// A store in trouble.
void beBusy(Household& household, const std::shared_ptr<Random>& random);
void beSlow(Household& household, const std::shared_ptr<Random>& random);
void failOnce(Household& household, const std::shared_ptr<Random>& random);
void failForAWhile(Household& household, const std::shared_ptr<Random>& random);
void beAway(Household& household, const std::shared_ptr<Random>& random);
void beMute(Household& household, const std::shared_ptr<Random>& random);
void loseNotices(Household& household, const std::shared_ptr<Random>& random);
void restoreOlderState(Household& household, const std::shared_ptr<Random>& random);
// The router.
void losePower(Household& household, const std::shared_ptr<Random>& random);
// So that the router runs for about as long as it has to before it reboots.
void losePowerBeforeReboots(Household& household, const std::shared_ptr<Random>& random);
void losePowerAtWork(Household& household, const std::shared_ptr<Random>& random);
void stepClock(Household& household, const std::shared_ptr<Random>& random);
void moveHouse(Household& household, const std::shared_ptr<Random>& random);

// Lets something happen again and again, each time after a span between these two.
void recur(Household& household, const std::shared_ptr<Random>& random, Microseconds least, Microseconds most,
           std::function<void(Household&, Random&)> what);
// How long it is until the clock shows the time of the automatic reboot, on an ordinary day.
Microseconds untilReboot(const Household& household);
// The row of a random Id; nothing where the table is empty.
const Row* anyRow(const Household& household, const std::string& table, Random& random);

} // namespace sim
