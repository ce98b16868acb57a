#include "handlers/dbm.h"
#include "handlers/timeplanrow.h"
#include "handlers/wlandecision.h"
#include "timeplan/weekslots.h"
#include "tools/horactl/findings.h"
#include "tools/horactl/localtime.h"
#include "tools/horactl/wlanstate.h"

#include <algorithm>
#include <set>

namespace tools::horactl {

namespace dbm = orv::horad::dbm;
using orv::horad::LocalMoment;
using orv::horad::TimePlan;
using orv::horad::TimePlanTime;
using orv::horad::WeekSlots;
using orv::horad::WlanVote;
using orv::simulation::idOf;
using velta::ValueList;

namespace {

// What a week tells of a plan of the WLAN.
struct PlanOfWlan {
    const ValueList& row;
    TimePlan plan;
    int activate;
    bool hasSlot = false;
    bool speaks = false;   // ever
    bool isSilent = false; // ever
    bool decides = false;  // ever
    bool prevails = false; // ever: what it says is what comes out
};

// The WLAN's plans through a week in which no clock changes. Between two moments that it looks at nothing
// changes.
class Week {
public:
    Week(const orv::simulation::Tables::Rows& rows, std::time_t midnight) : midnight_(midnight) {
        for (const ValueList& row : rows)
            plans_.push_back({row, orv::horad::planFrom(row), numberOf(row, dbm::TimePlan_Activate)});
        for (const PlanOfWlan& plan : plans_)
            addMoments(plan.row);
        const std::optional<LocalMoment> first = LocalMoment::at(midnight_);
        const auto shift = first ? (first->weekDay() + 6) % 7 : 0; // days from Monday to that midnight
        for (std::size_t day = 0; day < WeekSlots::days; ++day)
            for (const std::int64_t second : momentsOfDay_[day])
                look(midnight_ + (static_cast<int>(day) - shift + 7) % 7 * secondsOfDay + second);
    }

    const std::vector<PlanOfWlan>& plans() const { return plans_; }
    // Whether there are moments at which no plan speaks.
    bool needsDefault() const { return needsDefault_; }

private:
    void addMoments(const ValueList& row) {
        for (std::size_t day = 0; day < WeekSlots::days; ++day) {
            const orv::horad::DayColumns& columns = orv::horad::dayColumnsOf(day);
            const std::int64_t stop = secondOfDay(TimePlanTime(valueOf(row, columns.stop)));
            add(day, 0);
            add(day, secondOfDay(TimePlanTime(valueOf(row, columns.start))));
            add(day, stop + 1);
            add((day + 1) % WeekSlots::days, stop + 1);
        }
    }

    void add(std::size_t day, std::int64_t second) {
        if (second >= 0 && second < secondsOfDay)
            momentsOfDay_[day].insert(second);
    }

    void look(std::time_t time) {
        const std::optional<LocalMoment> moment = LocalMoment::at(time);
        if (!moment)
            return;
        orv::horad::WlanDecision decision;
        std::vector<WlanVote> votes;
        for (const PlanOfWlan& plan : plans_) {
            const bool status = orv::horad::wantedStatus(plan.plan, plan.plan.isInTimeslot(*moment));
            decision.hear(plan.activate, status ? 1 : 0);
            votes.push_back(orv::horad::wlanVoteOf(plan.activate, status ? 1 : 0));
        }
        needsDefault_ = needsDefault_ || !decision.decidedBy();
        for (std::size_t i = 0; i < plans_.size(); ++i) {
            const bool speaks = votes[i] != WlanVote::Silent;
            plans_[i].speaks = plans_[i].speaks || speaks;
            plans_[i].isSilent = plans_[i].isSilent || !speaks;
            plans_[i].decides = plans_[i].decides || decision.decidedBy() == i;
            plans_[i].prevails =
                plans_[i].prevails || (speaks && decision.wanted() == (votes[i] == WlanVote::On));
        }
    }

    std::time_t midnight_;
    std::vector<PlanOfWlan> plans_;
    std::set<std::int64_t> momentsOfDay_[WeekSlots::days]; // from Monday on
    bool needsDefault_ = false;
};

bool hasSlots(const ValueList& row) {
    for (std::size_t day = 0; day < WeekSlots::days; ++day) {
        const orv::horad::DayColumns& columns = orv::horad::dayColumnsOf(day);
        if (TimePlanTime(valueOf(row, columns.start)).isSet() ||
            TimePlanTime(valueOf(row, columns.stop)).isSet())
            return true;
    }
    return false;
}

void findUnheard(const std::vector<PlanOfWlan>& plans, Findings& findings) {
    const PlanOfWlan* always = nullptr; // the last plan that speaks all the time
    for (auto plan = plans.rbegin(); plan != plans.rend(); ++plan) {
        const std::string name = rowName(dbm::WlanTimePlans, idOf(plan->row));
        const std::string id = std::to_string(idOf(plan->row));
        if (plan->speaks && !plan->decides && always != nullptr)
            findings.push_back(
                {name, dbm::Id, id,
                 "it never decides: " + planName(dbm::WlanTimePlans, always->row) +
                     " comes later and speaks all the time",
                 "other slots for " + rowName(dbm::WlanTimePlans, idOf(always->row)) +
                     ", or a higher Id for this one: of the plans that speak the last one decides"});
        else if (plan->speaks && !plan->decides && !plan->prevails)
            findings.push_back({name, dbm::Id, id,
                                "it never decides: whenever it speaks, later plans say the opposite",
                                "a higher Id: of the plans that speak the last one decides"});
        if (always == nullptr && plan->speaks && !plan->isSilent)
            always = &*plan;
    }
}

} // namespace

void findInWlan(Inquiry& inquiry, Findings& findings) {
    const auto& rows = inquiry.tables.rows(dbm::WlanTimePlans);
    const bool alwaysEnabled = inquiry.tables.number(dbm::WlanGlobals, dbm::WlanGlobals_AlwaysEnable) != 0;
    if (rows.empty() || alwaysEnabled)
        return;
    const std::vector<std::string> followed = planTablesOf(inquiry.household);
    if (std::find(followed.begin(), followed.end(), dbm::WlanTimePlans) == followed.end()) {
        const ValueList& row = rows.front();
        findings.push_back({rowName(dbm::WlanTimePlans, idOf(row)), dbm::TimePlan_Status,
                            valueOf(row, dbm::TimePlan_Status),
                            "horad is not told to follow this table: the statuses stay as they are, and the "
                            "WLAN with them",
                            "horad started with -t WlanTimePlans"});
        return;
    }
    const Week week(rows, quietMidnight(inquiry.input.now, WeekSlots::days));
    Findings unheard;
    findUnheard(week.plans(), unheard);
    findings.insert(findings.end(), unheard.rbegin(), unheard.rend());
    const ValueList& first = rows.front();
    if (week.needsDefault() && !hasSlots(first))
        findings.push_back(
            {rowName(dbm::WlanTimePlans, idOf(first)), dbm::TimePlan_Activate,
             valueOf(first, dbm::TimePlan_Activate),
             std::string("it has no slots and never speaks, but it is the first row: it makes the "
                         "WLAN ") +
                 (numberOf(first, dbm::TimePlan_Activate) == 0 ? "on" : "off") + " whenever no plan speaks",
             "slots for it; or no such row, so that the first plan with slots makes the default"});
}

} // namespace tools::horactl
