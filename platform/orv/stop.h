#pragma once

#include "orv/system.h"

namespace orv {

// A request to stop, made once and for all. It is a descriptor: who waits for something waits for the request
// as well, and can't miss one that comes just before the wait, as he could with a flag.
class Stop {
public:
    // Throws std::system_error where the kernel has no descriptor left.
    Stop();
    ~Stop();
    Stop(const Stop&) = delete;
    Stop& operator=(const Stop&) = delete;

    // Safe in a signal handler.
    void request() const;
    bool requested() const { return requestedWithin(0); }
    // Waits for a request, for up to so many milliseconds. True where there is one.
    bool requestedWithin(int milliseconds) const;
    // Readable from the request on. Nobody reads it.
    int descriptor() const { return descriptor_; }

private:
    int descriptor_;
};

// A machine whose sleeps end at a request to stop.
class StoppableSystem : public System {
public:
    // Neither is owned.
    StoppableSystem(System& system, const Stop& stop) : system_(system), stop_(stop) {}

    std::time_t time() override { return system_.time(); }
    std::int64_t now() override { return system_.now(); }
    unsigned uptime() override { return system_.uptime(); }
    // To the millisecond, rounded up.
    void sleep(unsigned microseconds) override;
    bool stopping() override { return stop_.requested(); }

private:
    System& system_;
    const Stop& stop_;
};

} // namespace orv
