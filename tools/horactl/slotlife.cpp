#include "tools/horactl/slotlife.h"

#include "handlers/dbm.h"
#include "handlers/timeplanrow.h"
#include "tools/horactl/forecast.h"

#include <algorithm>

namespace tools::horactl {

namespace dbm = orv::horad::dbm;
using orv::simulation::idOf;
using orv::simulation::Tables;
using velta::ValueList;

namespace {

bool hasLongId(const ValueList& row) {
    return orv::horad::statusKeyOf(idOf(row)) != std::to_string(idOf(row));
}

// Without what would only cost time, and without rows whose status would be written to others.
Household plansAlone(const Household& household) {
    Household plans = household;
    plans.tables[dbm::TimeFrame].clear();
    for (const std::string& table : plans.planTables) {
        Household::Rows& rows = plans.tables[table];
        rows.erase(std::remove_if(rows.begin(), rows.end(), hasLongId), rows.end());
    }
    return plans;
}

// The status says it: what follows from being in the slot leads back to it.
bool isInSlot(const ValueList& row, int status) {
    return orv::horad::wantedStatus(orv::horad::planFrom(row), status != 0);
}

} // namespace

SlotLife::SlotLife(const Household& household, const Stretch& hours) {
    const Household plans = plansAlone(household);
    std::map<Row, std::int64_t> since; // of the slots that are current
    for (const std::string& table : plans.planTables)
        for (const ValueList& row : plans.rows(table))
            if (isInSlot(row, row.getValue(dbm::TimePlan_Status).getInteger()))
                since[{table, idOf(row)}] = hours.begin;
    const auto close = [&](const Row& row, std::int64_t end) {
        const auto open = since.find(row);
        if (open == since.end())
            return;
        slots_[row].push_back({open->second, end});
        since.erase(open);
    };
    Forecast forecast(plans, {hours.begin});
    forecast.onCommit([&](std::time_t time, const Forecast::Changes& changes) {
        for (const Tables::Change& change : changes) {
            const Row place{change.table, change.id};
            if (change.table == dbm::Reboot)
                reboots_.push_back(time);
            else if (change.column == dbm::TimePlan_Status)
                if (const ValueList* const row = plans.row(change.table, change.id)) {
                    if (isInSlot(*row, change.after.getInteger()))
                        since.emplace(place, time);
                    else
                        close(place, time);
                }
        }
    });
    forecast.runUntil(hours.end);
    while (!since.empty())
        close(Row(since.begin()->first), hours.end);
}

const Stretches& SlotLife::slotsOf(const std::string& table, int id) const {
    static const Stretches none;
    const auto found = slots_.find({table, id});
    return found != slots_.end() ? found->second : none;
}

} // namespace tools::horactl
