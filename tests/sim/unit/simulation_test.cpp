#include "sim/random.h"
#include "sim/scenario.h"
#include "sim/schema.h"
#include "sim/simulation.h"
#include "sim/zones.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace sim;
using velta::Value;

TEST(Simulation, TheSameSeedHasTheSameLife) {
    const Outcome first = simulate(7, "Europe/Berlin", 3);
    const Outcome second = simulate(7, "Europe/Berlin", 3);
    EXPECT_EQ(first.digest, second.digest);
    EXPECT_EQ(first.passes, second.passes);
}

TEST(Simulation, AnotherSeedOrZoneHasAnother) {
    const Outcome one = simulate(7, "Europe/Berlin", 1);
    EXPECT_NE(one.digest, simulate(8, "Europe/Berlin", 1).digest);
    EXPECT_NE(one.digest, simulate(7, "Asia/Kathmandu", 1).digest);
}

// A seed from a report means the same life on another machine.
TEST(Simulation, ChanceIsTheSameEverywhere) {
    Random random(1, "plans");
    std::vector<std::int64_t> numbers;
    for (int i = 0; i < 5; ++i)
        numbers.push_back(random.below(1000));
    EXPECT_EQ(numbers, (std::vector<std::int64_t>{348, 729, 258, 504, 187}));
}

TEST(Simulation, ThereAreTwentyZonesAndTheLibraryKnowsThem) {
    std::set<std::string> names;
    for (const Zone& zone : zones()) {
        names.insert(zone.name);
        EXPECT_TRUE(std::ifstream(std::string("/usr/share/zoneinfo/") + zone.name).is_open()) << zone.name;
    }
    EXPECT_GE(names.size(), 20U);
}

TEST(Simulation, ARunMeetsAChangeOfTheOffset) {
    setenv("TZ", "Europe/Berlin", 1);
    tzset();
    const std::time_t january = localTime("2026-01-10 00:00:00");
    const std::time_t beginning = beginningBeforeChange(january, 3 * 86400);
    EXPECT_GT(beginning, localTime("2026-03-25 00:00:00"));
    EXPECT_LT(beginning, localTime("2026-03-27 00:00:00"));
}

TEST(Simulation, OfAnHourThatComesTwiceTheFirstIsMeant) {
    setenv("TZ", "Europe/Dublin", 1);
    tzset();
    EXPECT_EQ(localTime("2026-10-25 01:30:00"), 1792888200);
    EXPECT_THROW((void)localTime("2026-03-29 01:30:00"), std::invalid_argument);
}

const std::map<std::string, Value::TypeCode> typeOfKind = {{"SWITCH", Value::Switch},
                                                           {"INTEGER", Value::Integer},
                                                           {"COUNTER", Value::Counter},
                                                           {"TEXT", Value::Text},
                                                           {"TIME", Value::Text}};

// "name type default", of each column.
std::vector<std::string> columnsInSql(const std::string& definition) {
    static const std::regex column(
        R"((\w+)\s+(SWITCH|INTEGER|COUNTER|TEXT|TIME)[^,]*?(?:DEFAULT\s+'?([^',\s]*)'?)?(?:\s+SHARED)?\s*(?=,|$))");
    std::vector<std::string> columns;
    const std::string flat = std::regex_replace(definition, std::regex(R"(\((\d+), (\d+)\))"), "");
    for (std::sregex_iterator at(flat.begin(), flat.end(), column), end; at != end; ++at)
        columns.push_back((*at)[1].str() + ' ' + std::to_string(typeOfKind.at((*at)[2])) + ' ' +
                          (*at)[3].str());
    return columns;
}

std::vector<std::string> columnsIn(const TableShape& table) {
    std::vector<std::string> columns;
    for (const orv::simulation::Column& column : table.columns) {
        const std::string value = column.type == Value::Text ? column.text : std::to_string(column.number);
        columns.push_back(column.name + ' ' + std::to_string(column.type) + ' ' +
                          (column.name == "Id" ? "" : value));
    }
    return columns;
}

TEST(Simulation, ItsTablesAreTheStores) {
    std::ifstream file(HORAD_SOURCE_DIR "/store/storage/schema/default.sql");
    std::stringstream whole;
    whole << file.rdbuf();
    const std::string sql = std::regex_replace(whole.str(), std::regex("--[^\n]*"), "");
    static const std::regex definition(R"(CREATE TABLE (\w+) \(([^;]*)\);)");
    std::map<std::string, std::vector<std::string>> stores;
    for (std::sregex_iterator at(sql.begin(), sql.end(), definition), end; at != end; ++at)
        stores[(*at)[1]] = columnsInSql((*at)[2]);
    std::map<std::string, std::vector<std::string>> ours;
    for (const TableShape& table : schema())
        ours[table.name] = columnsIn(table);
    EXPECT_EQ(ours, stores);
}

void fail(Household& household) {
    household.run(1 * minute);
    expectEqual("the answer", 41, 42);
}

TEST(Simulation, AScenarioThatFailsSaysWhereWhenAndWhatHappened) {
    const Outcome outcome = play(Scenario{"wrong", "Asia/Kolkata", "2026-03-02 12:00:00", fail});
    ASSERT_TRUE(outcome.failure.has_value());
    EXPECT_NE(outcome.failure->find("scenario wrong, zone Asia/Kolkata, at 2026-03-02T12:01:00+0530: the "
                                    "answer should be 42 and is 41\n"),
              std::string::npos)
        << *outcome.failure;
    EXPECT_NE(outcome.failure->find("boot 2026-03-02T12:00:00+0530\n"), std::string::npos);
    EXPECT_NE(outcome.failure->find("again: script/sim --scenario wrong\n"), std::string::npos);
}

TEST(Simulation, ScenariosHaveNamesOfTheirOwn) {
    std::set<std::string> names;
    for (const Scenario& scenario : scenarios())
        names.insert(scenario.name);
    EXPECT_EQ(names.size(), scenarios().size());
    EXPECT_GE(names.size(), 15U);
}

} // namespace
