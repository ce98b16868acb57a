// An idle evaluation pass: every plan is compared with the clock, and each status is right already.
// The floor is a loop over plain numbers. See runPasses() for the arguments.

#include "bench/inprocessstore.h"
#include "bench/passes.h"
#include "handlers/dbm.h"
#include "handlers/timeplanhandler.h"

#include <array>
#include <ctime>
#include <list>

namespace {

using bench::number;
using bench::text;
namespace dbm = orv::horad::dbm;

constexpr int days = 7;
constexpr int minutesADay = 24 * 60;

constexpr const char* startColumns[days] = {
    dbm::TimePlan_StartMon, dbm::TimePlan_StartTue, dbm::TimePlan_StartWed, dbm::TimePlan_StartThu,
    dbm::TimePlan_StartFri, dbm::TimePlan_StartSat, dbm::TimePlan_StartSun,
};
constexpr const char* stopColumns[days] = {
    dbm::TimePlan_StopMon, dbm::TimePlan_StopTue, dbm::TimePlan_StopWed, dbm::TimePlan_StopThu,
    dbm::TimePlan_StopFri, dbm::TimePlan_StopSat, dbm::TimePlan_StopSun,
};

// All seven days have a slot, no two plans in a row the same; some slots run past midnight.
int startMinute(unsigned plan, int day) {
    return static_cast<int>((plan * 7919U + static_cast<unsigned>(day) * 104729U) % minutesADay);
}

int stopMinute(unsigned plan, int day) {
    return (startMinute(plan, day) + 30 + static_cast<int>(plan * 271U % 600U)) % minutesADay;
}

velta::Value timeOfDay(int minute) {
    char content[32];
    std::snprintf(content, sizeof content, "%02d:%02d:00", minute / 60, minute % 60);
    return text(content);
}

// One table of plans.
class PlanStore : public bench::InProcessStore {
public:
    explicit PlanStore(unsigned plans) : plans_(plans) {}

    EResultCode size(const std::string&, unsigned& rows) override {
        rows = plans_;
        return {};
    }
    EResultCode selectRow(const std::string&, unsigned row, velta::ValueList& values,
                          const velta::NameList&) override {
        values.clear();
        values.add(dbm::Id, number(static_cast<int>(row) + 1));
        values.add(dbm::TimePlan_Name, text("Evening plan"));
        values.add(dbm::TimePlan_Status, number(0));
        values.add(dbm::TimePlan_Activate, number(1));
        for (int day = 0; day < days; ++day) {
            values.add(startColumns[day], timeOfDay(startMinute(row, day)));
            values.add(stopColumns[day], timeOfDay(stopMinute(row, day)));
        }
        return {};
    }

private:
    unsigned plans_;
};

class HoradPlans {
public:
    explicit HoradPlans(unsigned plans) : store_(plans) {
        (void)handler_.configChanged(store_, table_);
        pass(); // puts the statuses right
    }
    void pass() { handler_.checkTimePlans(store_); }

private:
    std::string table_ = "TimePlans";
    std::list<std::string> tables_ = {table_};
    PlanStore store_;
    orv::horad::TimePlanHandler handler_{tables_};
};

// The floor answers the same question of seconds in a row of memory.
class PlainPlans {
public:
    explicit PlainPlans(unsigned plans) : plans_(plans) {
        for (unsigned i = 0; i < plans; ++i)
            for (int day = 0; day < days; ++day) {
                const auto weekDay = static_cast<std::size_t>((day + 1) % days); // 0 is Sunday
                plans_[i].start[weekDay] = startMinute(i, day) * 60;
                plans_[i].stop[weekDay] = stopMinute(i, day) * 60;
            }
        pass();
    }
    void pass() {
        const std::time_t now = std::time(nullptr);
        std::tm local{};
        (void)localtime_r(&now, &local);
        const auto today = static_cast<std::size_t>(local.tm_wday);
        const int second = (local.tm_hour * 60 + local.tm_min) * 60 + local.tm_sec;
        for (Plan& plan : plans_)
            if (plan.isActive(today, second) != plan.status) {
                plan.status = !plan.status;
                ++writes_;
            }
    }
    unsigned writes() const { return writes_; }

private:
    struct Plan {
        std::array<int, days> start{};
        std::array<int, days> stop{};
        bool status = false;

        bool isActive(std::size_t today, int second) const {
            const std::size_t before = (today + days - 1) % days;
            const bool carriedOver = stop[before] <= start[before] && second <= stop[before];
            return carriedOver ||
                   (start[today] <= second && (stop[today] <= start[today] || second <= stop[today]));
        }
    };

    std::vector<Plan> plans_;
    volatile unsigned writes_ = 0;
};

} // namespace

int main(int argc, char* argv[]) {
    return bench::runPasses<HoradPlans, PlainPlans>(argc, argv, "plan", "evaluation");
}
