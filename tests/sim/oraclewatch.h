#pragma once

#include "sim/oraclecalendar.h"
#include "sim/view.h"

#include <cstdint>
#include <optional>
#include <string>

namespace sim {

// What the parts of the oracle share: the household, what is certain about horad, and the first violation.
//
// Nearly everything is judged at the end of an iteration that was undisturbed, as the two before it were. No
// time passes in such an iteration but in its wait: what horad decided in it, it decided now. And what it
// knows is what the tables hold.
class Watch {
public:
    explicit Watch(const View& watched) : view(watched) {}

    const View& view;

    // Iterations of this horad that are over.
    std::uint64_t passes() const { return passes_; }
    // Whether the iteration that is over, and those before it, were undisturbed.
    bool isExact() const { return exact_; }
    // Whether an operation of horad failed in the iteration that is over.
    bool failed() const { return failed_; }
    std::time_t clock() const { return view.machine.time(); }
    WallTime wall() { return wallClock_.at(clock()); }

    // Something is wrong, whatever disturbed horad. Only the first one counts.
    void violated(const std::string& what);
    // Something is wrong if the iteration turns out to be undisturbed: to be said before it is over.
    void suspected(const std::string& what);
    // Something is wrong whoever else has committed in this iteration: horad reads that before it acts.
    void suspectedAsRead(const std::string& what);
    const std::optional<std::string>& violation() const { return violation_; }

    void passed();
    void rebooted();

private:
    std::string atThisMoment(const std::string& what) const;
    void lookForFailures();
    bool isUndisturbed(unsigned passesSince) const;

    std::uint64_t passes_ = 0;
    bool exact_ = false;
    bool failed_ = false;
    std::uint64_t failuresSeen_ = 0;
    unsigned passesSinceFailure_ = 0;
    unsigned failingPasses_ = 0; // in a row, short breaks included
    WallClock wallClock_;
    std::optional<std::string> suspicion_;
    std::optional<std::string> suspicionAsRead_;
    std::optional<std::string> violation_;
};

} // namespace sim
