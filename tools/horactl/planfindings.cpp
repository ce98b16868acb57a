#include "handlers/dbm.h"
#include "handlers/timeplanrow.h"
#include "timeplan/weekslots.h"
#include "tools/horactl/findings.h"
#include "tools/horactl/localtime.h"
#include "tools/horactl/wlanstate.h"

#include <map>

namespace tools::horactl {

namespace dbm = orv::horad::dbm;
using orv::horad::DayColumns;
using orv::horad::Slot;
using orv::horad::TimePlanTime;
using orv::horad::WeekSlots;
using orv::simulation::idOf;
using velta::ValueList;

namespace {

// A horad that is busy for a moment still meets a slot of this length.
constexpr std::int64_t shortest = 4; // seconds

std::int64_t lengthOf(const Slot& slot) {
    return secondOfDay(slot.stop) - secondOfDay(slot.start) + (slot.runsPastMidnight() ? secondsOfDay : 0);
}

void findInSlot(const std::string& name, const ValueList& row, std::size_t day, Findings& findings) {
    const DayColumns& columns = orv::horad::dayColumnsOf(day);
    const Slot slot{TimePlanTime(valueOf(row, columns.start)), TimePlanTime(valueOf(row, columns.stop))};
    if (!slot.isSet())
        return;
    const std::string stop = valueOf(row, columns.stop);
    if (slot.start == slot.stop)
        findings.push_back(
            {name, columns.stop, stop,
             std::string("stop equals start: the slot lasts 24 hours, from ") + nameOfDay(day) + ' ' +
                 clockText(slot.start) + " to " + nameOfDay(day + 1) + ' ' + clockText(slot.stop),
             "another time to stop; both cells empty for no slot, 00:00:00 to 24:00:00 for the "
             "whole day"});
    else if (lengthOf(slot) < shortest)
        findings.push_back({name, columns.stop, stop,
                            "a slot of " + std::to_string(lengthOf(slot)) +
                                " s: the clock is looked at every two seconds, so that it may go by unseen",
                            "a slot of some minutes; both cells empty for no slot"});
}

void findInRow(const std::string& table, const ValueList& row, Findings& findings) {
    const std::string name = rowName(table, idOf(row));
    for (std::size_t day = 0; day < WeekSlots::days; ++day) {
        const DayColumns& columns = orv::horad::dayColumnsOf(day);
        bool readable = true;
        for (const char* const column : {columns.start, columns.stop})
            if (const std::optional<Finding> found = findNoTime(name, row, column)) {
                findings.push_back(*found);
                readable = false;
            }
        if (readable)
            findInSlot(name, row, day, findings);
    }
}

// Rows whose status is written by the same key.
void findInIds(const std::string& table, const orv::simulation::Tables::Rows& rows, Findings& findings) {
    std::map<std::string, std::vector<int>> idsOfKey;
    for (const ValueList& row : rows)
        idsOfKey[orv::horad::statusKeyOf(idOf(row))].push_back(idOf(row));
    for (const auto& [key, ids] : idsOfKey) {
        const std::string addressed = table + '.' + key;
        const bool exists = key == std::to_string(ids.front());
        for (const int id : ids)
            if (std::to_string(id) != key)
                findings.push_back({rowName(table, id), dbm::Id, std::to_string(id),
                                    "only three digits of an Id are used: its status is written to " +
                                        addressed + (exists ? "" : ", which is not there") +
                                        ", and never to its own row",
                                    "an Id from 1 to 999"});
        if (ids.size() < 2)
            continue;
        std::string others;
        for (std::size_t i = 0; i + 1 < ids.size(); ++i)
            others += (i == 0 ? "" : ", ") + rowName(table, ids[i]);
        findings.push_back({rowName(table, ids.back()), dbm::Id, std::to_string(ids.back()),
                            "its first three digits are those of " + others +
                                ": the statuses of all of them go to " + addressed,
                            "Ids that differ in their first three digits, from 1 to 999"});
    }
}

} // namespace

void findInPlans(Inquiry& inquiry, Findings& findings) {
    for (const std::string& table : planTablesOf(inquiry.household)) {
        const auto& rows = inquiry.tables.rows(table);
        for (const ValueList& row : rows)
            findInRow(table, row, findings);
        findInIds(table, rows, findings);
    }
}

} // namespace tools::horactl
