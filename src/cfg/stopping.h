#pragma once

#include <chrono>
#include <optional>

namespace orv::cfg {

// Whether the program is to stop, and until when what has begun may then go on. It never stops where no
// descriptor was given.
class Stopping {
public:
    using Clock = std::chrono::steady_clock;

    // Not owned. It is readable from the request to stop on, for good.
    void on(int descriptor) { descriptor_ = descriptor; }
    // To be polled beside whatever is waited for; -1 when there is nothing to be learned from it any more.
    int descriptor() const { return noted() ? -1 : descriptor_; }
    // The descriptor was found readable.
    void note();
    // Whether note() was called.
    bool noted() const { return deadline_.has_value(); }
    // Asks the descriptor, and notes it.
    bool requested();
    // The earlier one of the two: the given time, or the end of what may go on.
    Clock::time_point limit(Clock::time_point deadline) const;

private:
    int descriptor_ = -1;
    std::optional<Clock::time_point> deadline_;
};

} // namespace orv::cfg
