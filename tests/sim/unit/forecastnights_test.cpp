#include "sim/oracleplans.h"
#include "sim/schema.h"
#include "tools/horactl/forecast.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <list>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

// What horactl foresees of the nights in which clocks change, beside what the oracle expects of them.
namespace {

using orv::simulation::Machine;
using orv::simulation::Tables;
using tools::horactl::Forecast;
using tools::horactl::Household;

constexpr std::time_t minute = 60;
constexpr std::time_t hour = 60 * minute;
constexpr std::time_t newYear2023 = 1672531200; // in UTC
constexpr std::time_t newYear2024 = 1704067200;

constexpr const char* zones[] = {
    "Europe/Berlin",       "Europe/Dublin",   "Europe/London",        "Atlantic/Azores",
    "Africa/Casablanca",   "Africa/Cairo",    "America/New_York",     "America/Los_Angeles",
    "America/St_Johns",    "America/Havana",  "America/Scoresbysund", "America/Asuncion",
    "America/Santiago",    "Asia/Jerusalem",  "Asia/Beirut",          "Australia/Adelaide",
    "Australia/Lord_Howe", "Pacific/Chatham", "Pacific/Auckland",     "Pacific/Norfolk",
    "Antarctica/Troll",
};
static_assert(std::size(zones) >= 20);

long offsetAt(std::time_t moment) {
    std::tm local{};
    return localtime_r(&moment, &local) != nullptr ? local.tm_gmtoff : 0;
}

// The first seconds of the year's other offsets.
std::vector<std::time_t> changesOfTheYear() {
    std::vector<std::time_t> changes;
    for (std::time_t begin = newYear2023; begin < newYear2024; begin += hour / 2) {
        std::time_t before = begin;
        std::time_t after = begin + hour / 2;
        if (offsetAt(before) == offsetAt(after))
            continue;
        while (after - before > 1) {
            const std::time_t middle = before + (after - before) / 2;
            (offsetAt(middle) == offsetAt(begin) ? before : after) = middle;
        }
        changes.push_back(after);
    }
    return changes;
}

// What a clock shows that is so many seconds ahead of UTC.
std::string clockText(std::time_t moment, long offset) {
    const std::time_t shown = moment + offset;
    std::tm utc{};
    gmtime_r(&shown, &utc);
    char text[16];
    (void)std::snprintf(text, sizeof text, "%02d:%02d:%02d", utc.tm_hour, utc.tm_min, utc.tm_sec);
    return text;
}

// Times close to the change, as the clock shows them that is changed and the one that is not: they are left
// out, come twice, or stand at one of both ends.
std::vector<std::string> timesAround(std::time_t change) {
    constexpr std::time_t distances[] = {-90 * minute, -10, 0, 1, 25 * minute, 70 * minute};
    std::vector<std::string> times;
    for (const std::time_t distance : distances)
        for (const long offset : {offsetAt(change - 1), offsetAt(change)})
            times.push_back(clockText(change + distance, offset));
    return times;
}

constexpr std::size_t lives = 4; // of a night, each with a part of the slots

sim::Row planOf(int id, bool activate, const std::string& start, const std::string& stop) {
    return sim::dailyPlan("TimePlans", id, start, stop, activate);
}

// Slots from each of the times to each of the others, and over the midnights of single days. Of the WLAN,
// few plans: the last one decides.
Household householdAround(std::time_t change, std::size_t life) {
    Household household;
    for (const sim::TableShape& shape : sim::schema())
        household.tables[shape.name] = shape.hasManyRows() ? sim::Rows{} : sim::Rows{shape.newRow()};
    household.planTables = {"WlanTimePlans", "TimePlans"};
    const std::vector<std::string> times = timesAround(change);
    const auto at = [&](std::size_t index) { return times[index % times.size()]; };
    household.tables["WlanTimePlans"] = {planOf(1, false, at(3 * life), at(3 * life + 5)),
                                         planOf(2, true, at(3 * life + 7), at(3 * life + 1)),
                                         planOf(3, false, at(3 * life + 2), at(3 * life + 4))};
    sim::Rows& plans = household.tables["TimePlans"];
    int id = 0;
    for (std::size_t pair = life; pair < times.size() * times.size(); pair += lives)
        plans.push_back(planOf(++id, pair % 3 == 0, at(pair / times.size()), at(pair % times.size())));
    for (const char* const day : sim::weekDays) {
        sim::Row plan = sim::newRow("TimePlans", ++id);
        sim::setSlot(plan, day, "22:30", at(static_cast<std::size_t>(id) + life));
        plans.push_back(plan);
    }
    return household;
}

// A forecast that the oracle looks at after each iteration.
class WatchedForecast {
public:
    WatchedForecast(const Household& household, std::time_t begin)
        : begin_(begin), planTables_(household.planTables), forecast_(household, {begin}) {
        watch_.rebooted();
        forecast_.onCommit([this](std::time_t time, const Forecast::Changes& changes) {
            for (const Tables::Change& change : changes)
                count(time, change);
        });
    }

    // Until something is wrong.
    void runUntil(std::time_t end) {
        forecast_.runUntil(end, [this] {
            machine_.passUntil((forecast_.now() - begin_) * Machine::second);
            ++view_.passesSinceFault;
            ++view_.passesSinceTrouble;
            watch_.passed();
            plans_.passed();
            return !watch_.violation();
        });
    }

    const std::optional<std::string>& violation() const { return watch_.violation(); }

    int statusWrites = 0;
    int wlanWrites = 0;

private:
    void count(std::time_t time, const Tables::Change& change) {
        EXPECT_EQ(time, forecast_.now());
        if (change.column == "TimePlanStatus")
            ++statusWrites;
        else if (change.table == "WlanGlobals")
            ++wlanWrites;
        else
            EXPECT_EQ(change.table, "wexd"); // once, at the beginning
    }

    std::time_t begin_;
    std::list<std::string> planTables_;
    Forecast forecast_;
    Machine machine_{begin_ * Machine::second}; // the oracle's; all happens at full seconds
    sim::View view_{forecast_.tables(), machine_, planTables_, 180, false, false, 0, 0, 0, 0};
    sim::Watch watch_{view_};
    sim::PlanWatch plans_{watch_};
};

class ForecastNights : public ::testing::TestWithParam<const char*> {
protected:
    ForecastNights() { setZone(GetParam()); }
    ~ForecastNights() override { setZone("UTC"); }

    static void setZone(const char* zone) {
        setenv("TZ", zone, 1);
        tzset();
    }
};

TEST_P(ForecastNights, AreAsTheOracleSays) {
    const std::vector<std::time_t> changes = changesOfTheYear();
    ASSERT_EQ(changes.size(), 2U);
    for (const std::time_t change : changes) {
        int wlanWrites = 0;
        for (std::size_t life = 0; life < lives; ++life) {
            WatchedForecast forecast(householdAround(change, life), change - 2 * hour);
            forecast.runUntil(change + 2 * hour);
            EXPECT_EQ(forecast.violation().value_or(""), "");
            EXPECT_GT(forecast.statusWrites, 50);
            wlanWrites += forecast.wlanWrites;
        }
        EXPECT_GT(wlanWrites, 10);
    }
}

std::string nameOf(const ::testing::TestParamInfo<const char*>& zone) {
    std::string name = zone.param;
    name.erase(
        std::remove_if(name.begin(), name.end(), [](char letter) { return letter == '/' || letter == '_'; }),
        name.end());
    return name;
}

INSTANTIATE_TEST_SUITE_P(Zones, ForecastNights, ::testing::ValuesIn(zones), nameOf);

} // namespace
