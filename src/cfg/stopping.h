#pragma once

#include <chrono>
#include <optional>

namespace orv::cfg {

// Whether the program is to stop, and how long an open transaction may then go on. Without a descriptor it
// never stops.
class Stopping {
public:
    using Clock = std::chrono::steady_clock;

    // Not owned. It is readable from the request to stop on, for good.
    void on(int descriptor) { descriptor_ = descriptor; }
    // To be polled together with whatever is waited for; -1 once the request is known.
    int descriptor() const { return noted() ? -1 : descriptor_; }
    // The descriptor was found readable.
    void note();
    // Whether note() was called.
    bool noted() const { return deadline_.has_value(); }
    // Polls the descriptor, and notes a request.
    bool requested();
    // The given deadline, or after a request the end of the remaining time if that is earlier.
    Clock::time_point limit(Clock::time_point deadline) const;

private:
    int descriptor_ = -1;
    std::optional<Clock::time_point> deadline_;
};

} // namespace orv::cfg
