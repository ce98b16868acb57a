#pragma once

#include <cstdint>
#include <ctime>
#include <optional>

namespace orv::horad {

class Log;

// What is known of the next reboot, from one pass to the next.
enum class RebootState : std::uint32_t {
    Idle,           // nothing is scheduled; a refused or failed attempt comes back to it too
    Due,            // the slot has come and nothing speaks against it: the pass triggers
    WaitingForIdle, // the slot has come, but the line was busy
    Triggered,      // the reboot is written to the store
    Postponed,      // the line was busy for too long: it waits for the next slot
};

// What keeps a router from rebooting that is idle in the slot, asked in this order.
enum class RebootObstacle : std::uint8_t { None, UptimeTooShort, LastRebootTooRecent };

// uptime, minimum: seconds; the minimum bounds the uptime and the time since the last reboot from below.
// lastReboot: seconds since the epoch, like now; nothing where there was none.
[[nodiscard]] RebootObstacle obstacleOfReboot(unsigned uptime, std::time_t now,
                                              std::optional<std::time_t> lastReboot, std::uint32_t minimum);

// What the decision asks of its surroundings. It asks only what it needs: looking at the line reads a file.
class RebootSituation {
public:
    virtual ~RebootSituation() = default;

    // Whether there is no call.
    virtual bool isIdle() = 0;
    // Whether the router ran for long enough, since its start and since its last reboot.
    virtual bool isRebootAllowed() = 0;
};

// Whether the router reboots: a value, made anew from the one before it and from the situation.
struct RebootDecision {
    RebootState state = RebootState::Idle;
    std::time_t waitStart = 0; // seconds since the epoch; counts while it waits for an idle line

    // What a moment inside the slot makes of it: due, whatever it was.
    [[nodiscard]] RebootDecision inSlot() const { return {RebootState::Due, waitStart}; }
    // What a pass at that moment makes of it; each step is logged. `now`: seconds since the epoch.
    [[nodiscard]] RebootDecision next(std::time_t now, RebootSituation& situation, const Log& log) const;
};

} // namespace orv::horad
