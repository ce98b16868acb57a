// Times and plans from any text, asked about any moment.
#include "timeplan/timeplantime.h"

#include "fuzz/input.h"
#include "timeplan/localmoment.h"
#include "timeplan/timeplan.h"

#include <cstdlib>
#include <ctime>
#include <sstream>
#include <vector>

namespace {

using fuzz::require;
using orv::horad::LocalMoment;
using orv::horad::TimePlan;
using orv::horad::TimePlanTime;

constexpr std::size_t days = 7;

// A zone that is the same on every machine.
bool setZone() {
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    return true;
}

std::string printed(const TimePlanTime& time) {
    std::ostringstream out;
    time.put(out);
    return out.str();
}

std::string printed(const TimePlan& plan) {
    std::ostringstream out;
    out << plan;
    return out.str();
}

void checkTime(const TimePlanTime& time) {
    const TimePlanTime again(printed(time));
    require(again == time && !(again != time), "a printed time reads as it was");
    require(time <= time && time >= time && !(time < time), "a time is as late as it is");
    require(time.isSet() == (printed(time) != "0:0:0"), "only 0:0:0 is not set");
}

void checkOrder(const TimePlanTime& a, const TimePlanTime& b) {
    require(int{a < b} + int{b < a} + int{a == b} == 1,
            "of two times one is the earlier or they are the same");
    require((a > b) == (b < a) && (a <= b) == !(b < a) && (a >= b) == !(a < b), "comparisons agree");
}

// Times in the order start, stop, start, ... from Monday; days without any have no slot.
TimePlanTime timeAt(const std::vector<TimePlanTime>& times, std::size_t index) {
    return index < times.size() ? times[index] : TimePlanTime(0, 0, 0);
}

TimePlan planOf(const std::vector<TimePlanTime>& times) {
    using SetDay = void (TimePlan::*)(const TimePlanTime&, const TimePlanTime&);
    constexpr SetDay setDay[days] = {&TimePlan::setMon, &TimePlan::setTue, &TimePlan::setWed,
                                     &TimePlan::setThu, &TimePlan::setFri, &TimePlan::setSat,
                                     &TimePlan::setSun};
    TimePlan plan(1, "fuzz", false);
    for (std::size_t day = 0; day < days; ++day)
        (plan.*setDay[day])(timeAt(times, 2 * day), timeAt(times, 2 * day + 1));
    return plan;
}

// The rule in the words of timeplan.h.
bool isCovered(const std::vector<TimePlanTime>& times, const LocalMoment& moment) {
    const std::size_t today = (static_cast<std::size_t>(moment.weekDay()) + days - 1) % days;
    const std::size_t before = (today + days - 1) % days;
    const TimePlanTime start = timeAt(times, 2 * today);
    const TimePlanTime stop = timeAt(times, 2 * today + 1);
    const TimePlanTime startBefore = timeAt(times, 2 * before);
    const TimePlanTime stopBefore = timeAt(times, 2 * before + 1);
    const TimePlanTime& now = moment.time();
    if ((startBefore.isSet() || stopBefore.isSet()) && !(startBefore < stopBefore) && !(stopBefore < now))
        return true; // of the night before
    const bool endsToday = start < stop;
    return (start.isSet() || stop.isSet()) && !(now < start) && !(endsToday && stop < now);
}

void checkPrinted(const TimePlan& plan, const std::vector<TimePlanTime>& times) {
    const char* const names[days] = {"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"};
    std::string expected = "Id: 1\nName: fuzz\nStatus: 0\n";
    for (std::size_t day = 0; day < days; ++day)
        expected += std::string(names[day]) + ": " + printed(timeAt(times, 2 * day)) + " - " +
                    printed(timeAt(times, 2 * day + 1)) + "\n";
    require(printed(plan) == expected, "a plan prints the times that it was given");
}

void checkPlan(const std::vector<TimePlanTime>& times, long seconds) {
    TimePlan plan = planOf(times);
    checkPrinted(plan, times);
    TimePlan copy = plan;
    require(copy == plan && !(copy != plan), "a copy is the same");
    const std::optional<LocalMoment> moment = LocalMoment::at(seconds);
    const bool covered = moment && isCovered(times, *moment);
    require(plan.isInTimeslot(seconds) == covered, "a plan is in its slots and nowhere else");
    require(!moment || plan.isInTimeslot(*moment) == covered, "a moment is what its seconds are");

    copy.clear();
    require(!copy.isInTimeslot(seconds), "a plan without slots covers nothing");
    const bool anySlot = printed(plan) != printed(planOf({}));
    require((copy == plan) == !anySlot, "a plan without slots is another one");
    for (std::size_t day = 0; day < days; ++day)
        plan.setMon(timeAt(times, 2 * day), timeAt(times, 2 * day + 1));
    std::vector<TimePlanTime> changed = times;
    changed.resize(2 * days, TimePlanTime(0, 0, 0));
    changed[0] = timeAt(times, 12);
    changed[1] = timeAt(times, 13);
    checkPrinted(plan, changed);
    require(plan == planOf(changed), "plans are the same however they came about");
}

} // namespace

// A moment in eight bytes, then a text a line.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool zoned = setZone();
    (void)zoned;
    fuzz::Input input(data, size);
    const auto seconds = static_cast<long>(input.number(8));
    std::vector<TimePlanTime> times;
    std::istringstream lines(input.rest());
    for (std::string line; std::getline(lines, line) && times.size() < 2 * days;)
        times.emplace_back(line);
    for (const TimePlanTime& time : times) {
        checkTime(time);
        checkOrder(time, times.front());
    }
    checkPlan(times, seconds);
    return 0;
}
