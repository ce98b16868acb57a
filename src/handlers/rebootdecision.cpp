#include "handlers/rebootdecision.h"

#include "log.h"

namespace orv::horad {

namespace {

constexpr double waitingLimit = 3600.0; // seconds

RebootDecision dueIfAllowed(const RebootDecision& before, RebootSituation& situation, const Log& log) {
    if (!situation.isRebootAllowed())
        return {RebootState::Idle, before.waitStart};
    log.debug("Reboot allowed, continue with auto reboot.");
    return {RebootState::Due, before.waitStart};
}

RebootDecision waitOn(const RebootDecision& before, std::time_t now, const Log& log) {
    const double waited = std::difftime(now, before.waitStart);
    if (waited > waitingLimit) {
        log.info("System never became idle, postpone auto reboot to next scheduled time.");
        return {RebootState::Postponed, before.waitStart};
    }
    log.debug("Still waiting for system idle, waited %.0f seconds so far.", waited);
    return before;
}

} // namespace

RebootObstacle obstacleOfReboot(unsigned uptime, std::time_t now, std::optional<std::time_t> lastReboot,
                                std::uint32_t minimum) {
    if (uptime < minimum)
        return RebootObstacle::UptimeTooShort;
    if (!lastReboot)
        return RebootObstacle::None;
    const double elapsed = std::difftime(now, *lastReboot);
    // A last reboot in the future does not block: the clock was wrong then, or is now. C23: sic
    return elapsed > 0.0 && elapsed <= static_cast<double>(minimum) ? RebootObstacle::LastRebootTooRecent
                                                                    : RebootObstacle::None;
}

RebootDecision RebootDecision::next(std::time_t now, RebootSituation& situation, const Log& log) const {
    switch (state) {
    case RebootState::Idle:
    case RebootState::Triggered:
    case RebootState::Postponed:
        return *this;
    case RebootState::Due:
        if (situation.isIdle()) {
            log.debug("System is idle, continue with auto reboot.");
            return dueIfAllowed(*this, situation, log);
        }
        log.info("System is not idle => try reboot later.");
        return {RebootState::WaitingForIdle, now};
    case RebootState::WaitingForIdle:
        if (situation.isIdle()) {
            log.debug("System is now idle, continue with auto reboot.");
            return dueIfAllowed(*this, situation, log);
        }
        log.debug("System is still not idle => try reboot later.");
        return waitOn(*this, now, log);
    }
    log.error("Invalid state");
    return *this;
}

} // namespace orv::horad
