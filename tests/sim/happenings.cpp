#include "sim/happenings.h"

#include <cstdio>
#include <ctime>
#include <utility>

namespace sim {

const std::vector<Happening>& happenings() {
    static const std::vector<Happening> all = {
        {"plans", keepPlans},
        {"WLAN", keepWlan},
        {"auto reboot", keepAutoReboot},
        {"time frames", keepTimeframes},
        {"user plan", keepUserPlan},
        {"calls", haveCalls},
        {"calls at reboots", haveCallsAtReboots},
        {"streams", haveStreams},
        {"services", runServices},
        {"busy store", beBusy},
        {"slow store", beSlow},
        {"single failures", failOnce},
        {"lasting failures", failForAWhile},
        {"store away", beAway},
        {"mute store", beMute},
        {"lost notices", loseNotices},
        {"restored store", restoreOlderState},
        {"power cuts", losePower},
        {"power cuts before reboots", losePowerBeforeReboots},
        {"power cuts at work", losePowerAtWork},
        {"clock steps", stepClock},
        {"other zones", moveHouse},
    };
    return all;
}

// The next time is on the timetable before it happens: it may end everything that is on the stack.
void recur(Household& household, const std::shared_ptr<Random>& random, Microseconds least, Microseconds most,
           std::function<void(Household&, Random&)> what) {
    household.machine().after(random->between(least, most),
                              [&household, random, least, most, what = std::move(what)] {
                                  recur(household, random, least, most, what);
                                  what(household, *random);
                              });
}

Microseconds untilReboot(const Household& household) {
    const std::time_t now = household.view().machine.time();
    std::tm local{};
    (void)localtime_r(&now, &local);
    int dueHour = 0;
    int dueMinute = 0;
    (void)std::sscanf(household.tables().text("AutoReboot", "Time").c_str(), "%d:%d", &dueHour, &dueMinute);
    const Microseconds due = dueHour * hour + dueMinute * minute;
    const Microseconds today = local.tm_hour * hour + local.tm_min * minute + local.tm_sec * second;
    return (due - today + day) % day;
}

const Row* anyRow(const Household& household, const std::string& table, Random& random) {
    const Rows& rows = household.tables().rows(table);
    return rows.empty() ? nullptr : &random.among(rows);
}

} // namespace sim
