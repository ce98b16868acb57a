#include "handlers/timeplanhandler.h"

#include "handlers/dbm.h"
#include "handlers/onecell.h"
#include "handlers/timeplanrow.h"
#include "handlers/transaction.h"
#include "handlers/writefailure.h"
#include "log.h"

#include <ctime>
#include <sstream>
#include <unordered_map>

namespace orv::horad {

using cfg::common::IConfigClient;
using velta::ValueList;
using velta::protocol::EResultCode;

namespace {

std::string textOf(const TimePlan& plan) {
    std::ostringstream text;
    text << plan;
    return text.str();
}

} // namespace

TimePlanHandler::TimePlanHandler(std::list<std::string>& tables, System& system)
    : system_(system), tables_(tables) {
    for (const std::string& table : tables_)
        plans_[table];
}

void TimePlanHandler::getTables(std::list<std::string>& tables) {
    tables.insert(tables.end(), tables_.begin(), tables_.end());
}

bool TimePlanHandler::configChanged(IConfigClient& client, const std::string& table) {
    if (!table.empty()) {
        Logger::instance().info("Table %s was changed", table.c_str());
        (void)readTable(client, table); // the plans that were read count either way
        return true;
    }
    Logger::instance().info("Initial reading of config");
    for (const std::string& name : tables_)
        (void)readTable(client, name);
    return true;
}

void TimePlanHandler::process(IConfigClient&) {
    // The plans are acted on by the clock, not by changes: checkTimePlans().
}

// Brings the plans in line with the rows. A plan's populated flag tells whether this reading has seen its
// row.
bool TimePlanHandler::readTable(IConfigClient& client, const std::string& table) {
    Plans& plans = plans_[table];
    std::unordered_map<int, TimePlan*> planOfId;
    for (TimePlan& plan : plans) {
        plan.setPopulated(false);
        planOfId.emplace(plan.id(), &plan);
    }
    unsigned rows = 0;
    const EResultCode sized = client.size(table, rows);
    if (!sized.ok()) {
        Logger::instance().error("size() failed: %s", sized.strerror().c_str());
        return false;
    }
    for (unsigned i = 0; i < rows; ++i) {
        ValueList row;
        if (!client.selectRow(table, i, row, velta::NameList()).ok())
            return false;
        const TimePlan plan = planFrom(row);
        const auto known = planOfId.find(plan.id());
        if (known == planOfId.end())
            planOfId.emplace(plan.id(), &plans.emplace_back(plan));
        else if (*known->second != plan)
            *known->second = plan;
        else
            known->second->setPopulated(true);
    }
    plans.remove_if([](const TimePlan& plan) { return !plan.populated(); });
    return true;
}

void TimePlanHandler::checkTimePlans(IConfigClient& client) {
    const std::time_t now = system_.time();
    if (now == static_cast<std::time_t>(-1))
        return;
    const std::optional<LocalMoment> moment = clock_.at(now);
    for (auto& [table, plans] : plans_)
        for (TimePlan& plan : plans)
            checkPlan(client, table, moment && plan.isInTimeslot(*moment), plan);
}

void TimePlanHandler::checkPlan(IConfigClient& client, const std::string& table, bool inSlot,
                                TimePlan& plan) {
    const bool wanted = wantedStatus(plan, inSlot);
    if (wanted == plan.status() || !writeStatus(client, table, plan.id(), wanted))
        return;
    plan.setStatus(wanted);
    if (Logger::instance().debugs()) // the text of a plan is long
        Logger::instance().debug(wanted ? "Activated timeplan: %s" : "Deactivated timeplan: %s",
                                 textOf(plan).c_str());
}

// True when the write was attempted, also where the row could not be updated (C2: sic): the store's notice of
// the next change brings its value back. False when no transaction could be started: the next pass tries
// again.
bool TimePlanHandler::writeStatus(IConfigClient& client, const std::string& table, int id, bool status) {
    const ValueList values = oneCell(dbm::TimePlan_Status, velta::Value::Switch, status ? 1 : 0);
    Transaction transaction(client);
    if (!transaction.started().ok()) {
        logStartFailure(transaction.started());
        return false;
    }
    const EResultCode updated = client.updateRow(table, dbm::Id, statusKeyOf(id), values);
    if (!updated.ok())
        logWriteFailure(updated);
    (void)transaction.commit(); // the next reading brings back what the store then holds
    return true;
}

} // namespace orv::horad
