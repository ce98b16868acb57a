#pragma once

#include <chrono>
#include <ctime>

namespace fakes {

// While one lives, time() and clock_gettime(CLOCK_REALTIME) say what they are told; without one, the real
// time. Other clocks are always the real ones. At most one at a time.
//
// The C library's functions are defined in the test executable for that, so they are in force wherever
// scriptedclock.cpp is linked.
class ScriptedClock {
public:
    explicit ScriptedClock(std::time_t now) { set(now); }
    ~ScriptedClock();
    ScriptedClock(const ScriptedClock&) = delete;
    ScriptedClock& operator=(const ScriptedClock&) = delete;

    void set(std::time_t now);
    void set(std::chrono::microseconds sinceEpoch);
    // From now on each look at it moves it on by that much, after the look.
    void tick(std::chrono::microseconds step);
    // From now on the functions fail.
    void fail();
};

// How often the functions of the C library that tell or convert the time were called.
struct TimeCalls {
    unsigned time = 0;
    unsigned clockGettime = 0; // for CLOCK_REALTIME
    unsigned localtime = 0;    // localtime_r() too
    unsigned strftime = 0;
    unsigned mktime = 0;

    unsigned all() const { return time + clockGettime + localtime + strftime + mktime; }
};

TimeCalls timeCalls();
void resetTimeCalls();

// While one lives, local time is that of the zone. At most one at a time.
class LocalZone {
public:
    explicit LocalZone(const char* zone) { set(zone); }
    ~LocalZone();
    LocalZone(const LocalZone&) = delete;
    LocalZone& operator=(const LocalZone&) = delete;

    void set(const char* zone);
};

} // namespace fakes
