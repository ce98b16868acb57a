#pragma once

#include "orv/system.h"

namespace orv {

// A request to stop, which is made once and never taken back. It is a descriptor, so that it can be polled
// together with whatever the program waits for. A flag could be set just before the wait, and be missed.
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
    // Waits for a request, for at most that many milliseconds. Whether there is one.
    bool requestedWithin(int milliseconds) const;
    // Readable from the request on. It must not be read.
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
