#pragma once

#include "cfg/iconfighandler.h"
#include "orv/system.h"
#include "timeplan/localclock.h"
#include "timeplan/timeplan.h"

#include <list>
#include <map>
#include <string>

namespace orv::horad {

// Keeps the "TimePlanStatus" of weekly plans up to date. Each row of its tables is a plan; the plan is active
// inside its slots where "Activate" is 1, outside of them where it is 0.
class TimePlanHandler : public cfg::IConfigHandler {
public:
    // Copies the names, duplicates included. The system, whose clock the plans go by, outlives the handler.
    explicit TimePlanHandler(std::list<std::string>& tables, System& system = System::real());

    void getTables(std::list<std::string>& tables) override;
    // Reads the table, or all of them for an empty name. Always true.
    bool configChanged(cfg::common::IConfigClient& client, const std::string& table) override;
    void process(cfg::common::IConfigClient& client) override;

    // Compares every plan with the clock and writes the statuses that have to change.
    void checkTimePlans(cfg::common::IConfigClient& client);

private:
    using Plans = std::list<TimePlan>;

    bool readTable(cfg::common::IConfigClient& client, const std::string& table);
    void checkPlan(cfg::common::IConfigClient& client, const std::string& table, bool inSlot, TimePlan& plan);
    bool writeStatus(cfg::common::IConfigClient& client, const std::string& table, int id, bool status);

    System& system_;
    std::list<std::string> tables_;
    std::map<std::string, Plans> plans_; // by table, in the order first seen
    LocalClock clock_;
};

} // namespace orv::horad
