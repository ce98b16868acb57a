#include "tools/horactl/wlanstate.h"

#include "handlers/dbm.h"
#include "handlers/wlandecision.h"
#include "tools/text.h"

namespace tools::horactl {

namespace dbm = orv::horad::dbm;
using orv::horad::WlanDecision;
using orv::simulation::Tables;
using velta::ValueList;

std::string rowName(const std::string& table, int id) {
    return table + "." + std::to_string(id);
}

std::string planName(const std::string& table, const ValueList& row) {
    const std::string name = printable(row.getValue(dbm::TimePlan_Name).getText());
    return printable(rowName(table, orv::simulation::idOf(row))) + (name.empty() ? "" : " " + name);
}

WlanState wlanStateOf(const Tables& tables) {
    WlanState state;
    state.on = tables.number(dbm::WlanGlobals, dbm::WlanGlobals_WlanEnable) != 0;
    WlanDecision decision;
    const Tables::Rows& plans = tables.rows(dbm::WlanTimePlans);
    for (const ValueList& plan : plans)
        decision.hear(plan.getValue(dbm::TimePlan_Activate).getInteger(),
                      plan.getValue(dbm::TimePlan_Status).getInteger());
    state.wanted = decision.wanted();
    if (!plans.empty())
        state.row = plans[decision.decidedBy().value_or(0)];
    if (tables.number(dbm::WlanGlobals, dbm::WlanGlobals_AlwaysEnable) != 0)
        state.by = WlanState::By::AlwaysEnable;
    else if (decision.decidedBy())
        state.by = WlanState::By::Plan;
    return state;
}

std::string WlanState::decides() const {
    switch (by) {
    case By::AlwaysEnable:
        return dbm::WlanGlobals_AlwaysEnable;
    case By::Plan:
        return rowName(dbm::WlanTimePlans, orv::simulation::idOf(*row));
    case By::Default:
        return "default";
    }
    return {};
}

std::string WlanState::explanation() const {
    switch (by) {
    case By::AlwaysEnable:
        return "AlwaysEnable is set: no plan switches the WLAN";
    case By::Plan:
        return planName(dbm::WlanTimePlans, *row);
    case By::Default:
        if (!row)
            return "there is no WLAN plan";
        return "no plan speaks; the first row, " + planName(dbm::WlanTimePlans, *row) + ", " +
               (row->getValue(dbm::TimePlan_Activate).getInteger() == 0 ? "deactivates" : "activates");
    }
    return {};
}

} // namespace tools::horactl
