#include "sim/simulation.h"

#include "sim/happenings.h"
#include "sim/scenario.h"
#include "sim/watched.h"
#include "sim/zones.h"

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <functional>
#include <memory>

namespace sim {

namespace {

constexpr std::time_t aDay = 86400;         // seconds
constexpr std::time_t anyYear = 1704067200; // 2024-01-01
constexpr int yearsToChooseFrom = 4;

// Runs that are too short to meet a change of the offset by themselves begin shortly before one, most of
// them.
std::time_t beginningOf(std::uint64_t seed, const std::string& zone, int days) {
    Random random(seed, "beginning");
    const std::time_t any = anyYear + random.below(yearsToChooseFrom * 365 * aDay);
    const std::time_t before = random.below(std::min(days, 30) * aDay);
    if (random.chance(30))
        return any;
    const auto known = std::find_if(zones().begin(), zones().end(),
                                    [&](const Zone& candidate) { return zone == candidate.name; });
    return known != zones().end() && known->moment != 0 ? known->moment - before
                                                        : beginningBeforeChange(any, before);
}

std::string failureText(Household& household, const std::string& what) {
    return "at " + isoTime(household.machine().time()) + ": " + what + "\n" + "the last of what happened:\n" +
           household.journal().text();
}

// Lets it go on until it is through or something is wrong.
Outcome watched(Household& household, const std::function<void()>& goOn) {
    Outcome outcome;
    try {
        goOn();
        if (household.violation())
            outcome.failure = failureText(household, *household.violation());
    } catch (const std::exception& exception) {
        outcome.failure = failureText(household, household.violation().value_or(exception.what()));
    }
    outcome.passes = household.passes();
    outcome.digest = household.journal().digest();
    return outcome;
}

void setProcessZone(const std::string& zone) {
    setenv("TZ", zone.c_str(), 1);
    tzset();
}

} // namespace

Outcome simulate(std::uint64_t seed, const std::string& zone, int days) {
    setProcessZone(zone);
    Household household(zone, beginningOf(seed, zone, days));
    Watched observer(household);
    household.observe(&observer);
    for (const Happening& happening : happenings())
        happening.begin(household, std::make_shared<Random>(seed, happening.name));
    Outcome outcome = watched(household, [&household, days] { household.run(days * day); });
    if (outcome.failure) {
        const std::string number = std::to_string(seed);
        *outcome.failure = "seed " + number + ", zone " + zone + ", " + *outcome.failure +
                           "again: script/sim --seed " + number + " --zones " + zone + " --days " +
                           std::to_string(days) + "\n";
    }
    return outcome;
}

Outcome play(const Scenario& scenario) {
    setProcessZone(scenario.zone);
    Household household(scenario.zone, localTime(scenario.beginning));
    Watched observer(household);
    household.observe(&observer);
    Outcome outcome = watched(household, [&] { scenario.play(household); });
    if (outcome.failure)
        *outcome.failure = std::string("scenario ") + scenario.name + ", zone " + scenario.zone + ", " +
                           *outcome.failure + "again: script/sim --scenario " + scenario.name + "\n";
    return outcome;
}

} // namespace sim
