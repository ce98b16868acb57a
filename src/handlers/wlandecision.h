#pragma once

#include <cstdint>
#include <optional>

namespace orv::horad {

// What one plan says of the WLAN.
enum class WlanVote : std::uint8_t {
    Silent,
    On,  // an activating plan that is active
    Off, // a deactivating plan that is not active
};

// activate, status: the cells of the plan's row. A number that is neither 0 nor 1 is silent.
[[nodiscard]] WlanVote wlanVoteOf(int activate, int status);

// What the plans of the WLAN make of it: a value that hears them in the order of their rows. The last one
// that is not silent decides. Where all are silent, the first one's kind does: a deactivating one leaves the
// WLAN on, any other off. Off without a plan.
class WlanDecision {
public:
    void hear(int activate, int status);

    bool wanted() const { return wanted_; }
    // The row that decides, counted from 0; nothing where the default holds.
    std::optional<unsigned> decidedBy() const { return decidedBy_; }

private:
    bool wanted_ = false;
    unsigned heard_ = 0;
    std::optional<unsigned> decidedBy_;
};

// What is done about the WLAN, asked in this order.
enum class WlanAction : std::uint8_t {
    LeaveAlwaysEnabled, // "AlwaysEnable" keeps the plans out
    LeaveAsWanted,      // it is already what the plans want
    Switch,
};

[[nodiscard]] WlanAction wlanActionOf(bool alwaysEnabled, bool enabled, bool wanted);

} // namespace orv::horad
