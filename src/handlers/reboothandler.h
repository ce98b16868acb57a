#pragma once

#include "cfg/iconfighandler.h"
#include "handlers/rebootdecision.h"
#include "log.h"
#include "orv/system.h"
#include "timeplan/timeplan.h"

#include <cstdint>
#include <ctime>
#include <list>
#include <string>

namespace orv::horad {

// Reboots the router at a time of day, on one weekday or every day, once the line is idle: no call may be cut
// off. It only writes the command: another component of the router carries it out.
//
// The same number of seconds bounds the router's uptime and the time since the last reboot from below:
// whatever its clock shows, a router runs for so long before it reboots.
class RebootHandler : public cfg::IConfigHandler {
public:
    // The system, whose clock and uptime the reboot goes by, outlives the handler.
    explicit RebootHandler(System& system = System::real());

    void getTables(std::list<std::string>& tables) override;
    // Reads the settings, for their own table's name and for the empty one. False where they can't be read or
    // name no time.
    bool configChanged(cfg::common::IConfigClient& client, const std::string& table) override;
    // Does nothing: a reboot depends on the clock, not on a change.
    void process(cfg::common::IConfigClient& client) override;

    // Decides whether the router reboots now, and if so writes the command and the moment in one transaction.
    // To be called at least every minute, the length of the slot. Blocks as long as it tries to get its
    // transaction: 120 pauses of half a second, and what the attempts between them take. Throws where the
    // number of SIP calls can't be read.
    void checkReboot(cfg::common::IConfigClient& client);

    const RebootDecision& decision() const { return decision_; }

private:
    class Situation;

    bool __readAutoRebootCfg(cfg::common::IConfigClient& client);
    void __updateState(cfg::common::IConfigClient& client);
    bool __isRebootAllowed(const std::string& lastReboot, const std::time_t& now) const;
    bool __startTransaction(cfg::common::IConfigClient& client);
    std::time_t __currTime();
    std::string __currentTimeToIsoFormat();
    unsigned __getUptime() const;

    bool isInSlot(std::time_t now) const;
    void trigger(cfg::common::IConfigClient& client, const std::string& now);

    System& system_;
    std::string time_; // of day, as the store has it
    bool enabled_ = false;
    std::uint8_t weekDay_ = 1; // 0 is every day, 1 Monday, 6 Saturday, all others Sunday
    std::string lastReboot_;   // see isotime.h
    TimePlan timePlan_;
    RebootDecision decision_;
    std::uint32_t minimumRuntime_ = 5400; // seconds
    Log log_;
};

} // namespace orv::horad
