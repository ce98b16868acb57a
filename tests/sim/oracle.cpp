#include "sim/oracle.h"

#include <algorithm>

namespace sim {

using orv::simulation::Tables;

Oracle::Oracle(const View& view)
    : watch_(view), plans_(watch_), services_(watch_), reboot_(watch_), bounds_(watch_) {}

void Oracle::committed(const Changes& changes) {
    bounds_.committed();
    for (const Tables::Change& change : changes)
        judgeCell(change);
    if (changes.empty())
        return;
    services_.committed(changes);
    reboot_.committed(changes);
}

// There are seven columns that horad writes; the status of a service is judged beside its frame.
void Oracle::judgeCell(const Tables::Change& change) {
    struct Cell {
        const char* table;
        const char* column;
    };
    constexpr Cell written[] = {
        {"WlanGlobals", "WlanEnable"}, {"wexd", "Enable"},           {"TimeFrame", "RunCounter"},
        {"Reboot", "Trigger"},         {"AutoReboot", "LastReboot"},
    };
    if (change.column == "WlanEnable" && watch_.view.tables.number("WlanGlobals", "AlwaysEnable") != 0)
        watch_.suspected("WlanGlobals: WlanEnable was changed to " + change.after.getText() +
                         " while the WLAN was always enabled");
    const std::list<std::string>& plans = watch_.view.planTables;
    if (change.column == "Status" ||
        (change.column == "TimePlanStatus" &&
         std::find(plans.begin(), plans.end(), change.table) != plans.end()) ||
        std::any_of(std::begin(written), std::end(written), [&](const Cell& cell) {
            return change.table == cell.table && change.column == cell.column;
        }))
        return;
    watch_.violated(change.table + " " + std::to_string(change.id) + ": " + change.column +
                    " was changed, and is not horad's to change");
}

void Oracle::passed() {
    watch_.passed();
    plans_.passed();
    services_.passed();
    reboot_.passed();
    bounds_.passed({plans_.rows(), plans_.edges(), services_.runs(), plans_.rowsFight()});
}

void Oracle::rebooted() {
    watch_.rebooted();
    services_.rebooted();
    reboot_.rebooted();
    bounds_.rebooted();
}

} // namespace sim
