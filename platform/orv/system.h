#pragma once

#include <cstdint>
#include <ctime>

namespace orv {

// The machine behind handlers and model: its clock, its uptime, its sleep. A simulation of time supplies its
// own machine.
class System {
public:
    virtual ~System() = default;

    // Asks the C library at each call and keeps nothing. It is never asked to stop.
    static System& real();

    // Seconds since the epoch; -1 where the clock can't be read.
    virtual std::time_t time() = 0;
    // Microseconds since the epoch, in 64 bits on every machine.
    virtual std::int64_t now() = 0;
    // Seconds since the machine was started; 0 if that can't be read.
    virtual unsigned uptime() = 0;
    // Ends early where the machine is asked to stop.
    virtual void sleep(unsigned microseconds) = 0;
    // Whether the program was asked to stop: a loop that keeps trying something then gives up.
    virtual bool stopping() { return false; }
};

} // namespace orv
