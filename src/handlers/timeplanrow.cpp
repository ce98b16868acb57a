#include "handlers/timeplanrow.h"

#include "handlers/dbm.h"

namespace orv::horad {

using velta::ValueList;

namespace {

constexpr DayColumns dayColumns[WeekSlots::days] = {
    {dbm::TimePlan_StartMon, dbm::TimePlan_StopMon}, {dbm::TimePlan_StartTue, dbm::TimePlan_StopTue},
    {dbm::TimePlan_StartWed, dbm::TimePlan_StopWed}, {dbm::TimePlan_StartThu, dbm::TimePlan_StopThu},
    {dbm::TimePlan_StartFri, dbm::TimePlan_StopFri}, {dbm::TimePlan_StartSat, dbm::TimePlan_StopSat},
    {dbm::TimePlan_StartSun, dbm::TimePlan_StopSun},
};

} // namespace

const DayColumns& dayColumnsOf(std::size_t day) {
    return dayColumns[day];
}

TimePlan planFrom(const ValueList& row) {
    TimePlan plan(row.getValue(dbm::Id).getInteger(), row.getValue(dbm::TimePlan_Name).getText(),
                  row.getValue(dbm::TimePlan_Status).getInteger() != 0);
    plan.setMarked(row.getValue(dbm::TimePlan_Activate).getInteger() != 0);
    for (std::size_t day = 0; day < WeekSlots::days; ++day)
        plan.setDay(day, TimePlanTime(row.getValue(dayColumns[day].start).getText()),
                    TimePlanTime(row.getValue(dayColumns[day].stop).getText()));
    return plan;
}

std::string statusKeyOf(int id) {
    constexpr std::size_t keyLength = 3;
    return std::to_string(id).substr(0, keyLength);
}

} // namespace orv::horad
