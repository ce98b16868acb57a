#include "store/cluster/sharedoperations.h"
#include "support/fakeovsdb.h"
#include "unit/storage/sharedtables.h"

#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using store::Json;
using store::SharedCells;
using store::SharedChange;
using store::SharedOperations;
using store::SharedRow;
using testing::ElementsAre;
using testing::StartsWith;
namespace code = velta::protocol::code;

constexpr std::size_t plans = 0; // the indexes of the tables
constexpr std::size_t globals = 1;
constexpr int applied = -1;

const store::Schema& schema() {
    static const store::Schema tables = schemaOf(sharedTables);
    return tables;
}

SharedCells planCells(const std::string& name, const std::string& start) {
    return {textValue(name), textValue(start)};
}

SharedChange::Row newPlan(std::int64_t id, const std::string& name) {
    return {{plans, id, "", {}}, planCells(name, ""), true};
}

// A cluster with two plans and the row of Globals, a device that knows them, and what it makes of a change.
class SharedOperationsTest : public testing::Test {
protected:
    SharedOperationsTest() {
        for (const char* const table : {"Plans", "Cluster"})
            cluster.addIndex(table, {"Id"});
        night =
            insert(plans, 1, {{"Id", 1}, {"Name", "Night"}, {"Start", "22:00"}}, planCells("Night", "22:00"));
        day = insert(plans, 2, {{"Id", 2}, {"Name", "Day"}, {"Start", "8:00"}}, planCells("Day", "8:00"));
        always = insert(globals, 1, {{"Always", 1}}, {switchValue(1)});
    }

    SharedRow insert(std::size_t table, std::int64_t id, const Json& row, const SharedCells& cells) {
        const Json results =
            cluster.transact(Json::array({store::insertInto(schema().tables().at(table).name, row)}));
        return {table, id, results.at(0).at("uuid").at(1).get<std::string>(), cells};
    }

    // Another device's.
    void change(const std::string& table, std::size_t row, const Json& cells) {
        cluster.rows(table).at(row).update(cells);
    }

    // The code of what becomes of it; `applied` if it is.
    int outcomeOf(const SharedChange& change) {
        SharedOperations operations;
        if (const auto result = appendChange(schema(), change, {}, operations); !result.ok())
            return result.code();
        return send(operations);
    }

    int send(const SharedOperations& operations) {
        EXPECT_EQ(operations.failures.size(), operations.list.size());
        const Json results = cluster.transact(operations.list);
        for (std::size_t i = 0; i < results.size(); ++i)
            if (results[i].is_object() && results[i].contains("error")) {
                detail = operations.failed(i).detail();
                return operations.failed(i).code();
            }
        return applied;
    }

    // "1 Night 22:00" each.
    std::vector<std::string> plansThere() {
        std::vector<std::string> rows;
        for (const Json& row : cluster.rows("Plans"))
            rows.push_back(std::to_string(row.at("Id").get<int>()) + ' ' + row.at("Name").get<std::string>() +
                           ' ' + row.at("Start").get<std::string>());
        return rows;
    }

    test::FakeOvsdb cluster{{{"Plans", {{"Id", 0}, {"Name", ""}, {"Start", ""}}},
                             {"Globals", {{"Always", 0}}},
                             {"Cluster", {{"Id", 0}, {"SeededBy", ""}}}}};
    SharedRow night;
    SharedRow day;
    SharedRow always;
    std::string detail; // of the last failure
};

TEST_F(SharedOperationsTest, CellsThatDifferAreWrittenAndNoOthers) {
    const SharedChange change{{{night, planCells("Late", "22:00"), false}}, {}};
    SharedOperations operations;
    ASSERT_TRUE(appendChange(schema(), change, {}, operations).ok());
    EXPECT_EQ(operations.list.back().at("row"), (Json{{"Name", "Late"}}));
    EXPECT_EQ(send(operations), applied);
    EXPECT_THAT(plansThere(), ElementsAre("1 Late 22:00", "2 Day 8:00"));
}

TEST_F(SharedOperationsTest, RowsAreAddedAndRemoved) {
    EXPECT_EQ(outcomeOf({{newPlan(3, "Noon"), {night, std::nullopt, false}}, {}}), applied);
    EXPECT_THAT(plansThere(), ElementsAre("2 Day 8:00", "3 Noon "));
}

TEST_F(SharedOperationsTest, SingleRowIsWritten) {
    EXPECT_EQ(outcomeOf({{{always, SharedCells{switchValue(0)}, false}}, {}}), applied);
    EXPECT_EQ(cluster.rows("Globals").at(0).at("Always"), 0);
}

TEST_F(SharedOperationsTest, RowThatWasAddedAndRemovedAgainIsNothing) {
    EXPECT_EQ(outcomeOf({{{{plans, 3, "", {}}, std::nullopt, true}}, {}}), applied);
    EXPECT_THAT(plansThere(), ElementsAre("1 Night 22:00", "2 Day 8:00"));
}

// Each time the change writes plan 1 and has read plan 2.
struct Meanwhile {
    const char* name;
    std::function<void(test::FakeOvsdb&)> happens;
    const char* conflict; // what it is about
};

class ConflictTest : public SharedOperationsTest, public testing::WithParamInterface<Meanwhile> {};

TEST_P(ConflictTest, LeavesAllAsItIs) {
    GetParam().happens(cluster);
    const auto before = plansThere();
    const SharedChange change{{{night, planCells("Late", "23:00"), false}, {day, day.cells, false}}, {}};
    EXPECT_EQ(outcomeOf(change), code::conflict);
    EXPECT_EQ(detail, GetParam().conflict);
    EXPECT_EQ(plansThere(), before);
}

const Meanwhile meanwhile[] = {
    {"TheRowThatIsWrittenWasChanged", [](auto& cluster) { cluster.rows("Plans").at(0)["Start"] = "21:00"; },
     "Plans.1"},
    {"TheRowThatIsWrittenWasChangedToTheSame",
     [](auto& cluster) {
         cluster.rows("Plans").at(0).update(Json{{"Name", "Late"}, {"Start", "23:00"}});
     },
     "Plans.1"},
    {"TheRowThatIsWrittenWasRemoved",
     [](auto& cluster) { cluster.rows("Plans").erase(cluster.rows("Plans").begin()); }, "Plans.1"},
    {"TheRowThatIsWrittenWasReplacedByAnEqualOne",
     [](auto& cluster) {
         cluster.rows("Plans").at(0)["_uuid"] = Json::array({"uuid", "new"});
     },
     "Plans.1"},
    {"TheRowThatWasReadWasChanged", [](auto& cluster) { cluster.rows("Plans").at(1)["Name"] = "Noon"; },
     "Plans.2"},
    {"TheRowThatWasReadWasRemoved", [](auto& cluster) { cluster.rows("Plans").pop_back(); }, "Plans.2"},
};

INSTANTIATE_TEST_SUITE_P(Meanwhile, ConflictTest, testing::ValuesIn(meanwhile),
                         [](const auto& tested) { return tested.param.name; });

TEST_F(SharedOperationsTest, WhatIsNeitherReadNorWrittenMayChange) {
    change("Plans", 1, {{"Name", "Noon"}});
    EXPECT_EQ(outcomeOf({{{night, planCells("Late", "22:00"), false}}, {}}), applied);
    EXPECT_THAT(plansThere(), ElementsAre("1 Late 22:00", "2 Noon 8:00"));
}

TEST_F(SharedOperationsTest, RemovalOfARowThatWasChangedMeanwhileIsAConflict) {
    change("Plans", 0, {{"Name", "Later"}});
    EXPECT_EQ(outcomeOf({{{night, std::nullopt, false}}, {}}), code::conflict);
    EXPECT_EQ(detail, "Plans.1");
    EXPECT_EQ(plansThere().size(), 2U);
}

TEST_F(SharedOperationsTest, TableThatWasReadAsAWholeMustBeAsItWas) {
    const SharedChange change{{newPlan(4, "Noon")}, {{plans, {night, day}}}};
    const auto before = cluster.rows("Plans");
    const std::function<void(std::vector<Json>&)> cases[] = {
        [](auto& rows) { rows.pop_back(); },
        [](auto& rows) { rows.at(1)["Start"] = "9:00"; },
        [](auto& rows) {
            rows.push_back({{"_uuid", {"uuid", "n"}}, {"Id", 3}, {"Name", ""}, {"Start", ""}});
        },
    };
    for (const auto& happens : cases) {
        cluster.rows("Plans") = before;
        happens(cluster.rows("Plans"));
        EXPECT_EQ(outcomeOf(change), code::conflict);
        EXPECT_EQ(detail, "Plans");
    }
    cluster.rows("Plans") = before;
    EXPECT_EQ(outcomeOf(change), applied);
}

TEST_F(SharedOperationsTest, TableThatWasReadAsAnEmptyOneMustBeEmpty) {
    const SharedChange change{{{always, SharedCells{switchValue(0)}, false}}, {{plans, {}}}};
    EXPECT_EQ(outcomeOf(change), code::conflict);
    cluster.rows("Plans").clear();
    EXPECT_EQ(outcomeOf(change), applied);
}

TEST_F(SharedOperationsTest, SingleRowThatTheClusterLacksIsAdded) {
    cluster.rows("Globals").clear();
    const SharedRow unnamed{globals, 1, "", {switchValue(0)}};
    EXPECT_EQ(outcomeOf({{{unnamed, SharedCells{switchValue(1)}, false}}, {}}), applied);
    ASSERT_EQ(cluster.rows("Globals").size(), 1U);
    EXPECT_EQ(cluster.rows("Globals").at(0).at("Always"), 1);
}

// What was read of a row that the cluster lacks can't have changed there.
TEST_F(SharedOperationsTest, SingleRowThatTheClusterLacksMayBeReadAsAWholeTable) {
    cluster.rows("Globals").clear();
    const SharedRow unnamed{globals, 1, "", {switchValue(0)}};
    const SharedChange change{{{unnamed, SharedCells{switchValue(1)}, false}}, {{globals, {unnamed}}}};
    EXPECT_EQ(outcomeOf(change), applied);
    EXPECT_EQ(cluster.rows("Globals").size(), 1U);

    cluster.rows("Globals").at(0)["_uuid"] = Json::array({"uuid", "of another device"});
    EXPECT_EQ(outcomeOf(change), code::conflict); // now there is one
    EXPECT_EQ(detail, "Globals");
}

TEST_F(SharedOperationsTest, IdThatAnotherDeviceHasTakenMeanwhileIsToldOfTheWhole) {
    SharedOperations operations;
    ASSERT_TRUE(appendChange(schema(), {{newPlan(2, "Noon")}, {}}, {}, operations).ok());
    EXPECT_EQ(send(operations), code::duplicateId);
    EXPECT_EQ(detail, "another device has inserted it meanwhile");
    EXPECT_EQ(operations.failed(0).code(), code::duplicateId);
    EXPECT_EQ(operations.failed(0).detail(), "Plans.2");
    EXPECT_THAT(plansThere(), ElementsAre("1 Night 22:00", "2 Day 8:00"));
}

TEST_F(SharedOperationsTest, ChangeThatInsertsNothingHasNoDuplicateId) {
    SharedOperations operations;
    const SharedChange change{{{night, planCells("Late", "23:00"), false}}, {}};
    ASSERT_TRUE(appendChange(schema(), change, {}, operations).ok());
    EXPECT_EQ(operations.failed(99).code(), code::conflict);
}

TEST_F(SharedOperationsTest, EachOperationHasTheFailureOfItsRow) {
    const SharedChange change{
        {{night, planCells("Late", "22:00"), false}, {day, std::nullopt, false}, newPlan(7, "Noon")},
        {{globals, {always}}}};
    SharedOperations operations;
    ASSERT_TRUE(appendChange(schema(), change, {}, operations).ok());
    std::vector<std::string> failures;
    for (std::size_t i = 0; i < operations.list.size(); ++i)
        failures.push_back(operations.list[i].at("op").get<std::string>() + ' ' +
                           operations.failed(i).detail() +
                           (operations.failed(i).code() == code::duplicateId ? " duplicate" : ""));
    EXPECT_THAT(failures, ElementsAre("wait Globals", "wait Plans.1", "wait Plans.2", "update Plans.1",
                                      "delete Plans.2", "insert Plans.7 duplicate"));
}

TEST_F(SharedOperationsTest, WhatCantBeHeldIsRefusedBeforeAnythingIsSent) {
    const std::string zero("a\0b", 3);
    const SharedChange cases[] = {
        {{{night, planCells("Late", "\xff"), false}}, {}},
        {{newPlan(1, zero)}, {}},
        {{{{plans, 1, "u", planCells(zero, "")}, std::nullopt, false}}, {}},
        {{}, {{plans, {{plans, 1, "u", planCells(zero, "")}}}}},
    };
    for (const SharedChange& change : cases) {
        SharedOperations operations;
        const auto result = appendChange(schema(), change, {}, operations);
        EXPECT_EQ(result.code(), code::wrongKind);
        EXPECT_THAT(result.detail(), StartsWith("Plans.1 "));
    }
    EXPECT_EQ(plansThere().size(), 2U);
}

class SeedTest : public SharedOperationsTest {
protected:
    SeedTest() {
        for (const char* const table : {"Plans", "Globals"})
            cluster.rows(table).clear();
    }

    int seedBy(const std::string& device) {
        for (SharedRow* const row : {&night, &day, &always})
            row->uuid.clear();
        SharedOperations operations;
        EXPECT_TRUE(appendSeed(schema(), {night, day, always}, device, operations).ok());
        return send(operations);
    }
};

TEST_F(SeedTest, AnEmptyClusterIsFilledWithAllRows) {
    EXPECT_EQ(seedBy("attic"), applied);
    EXPECT_THAT(plansThere(), ElementsAre("1 Night 22:00", "2 Day 8:00"));
    EXPECT_EQ(cluster.rows("Globals").at(0).at("Always"), 1);
    ASSERT_EQ(cluster.rows("Cluster").size(), 1U);
    EXPECT_EQ(cluster.rows("Cluster").at(0).at("SeededBy"), "attic");
}

TEST_F(SeedTest, TheSecondOneIsLate) {
    ASSERT_EQ(seedBy("attic"), applied);
    EXPECT_EQ(seedBy("cellar"), code::conflict);
    EXPECT_EQ(detail, "another device was faster");
    EXPECT_EQ(plansThere().size(), 2U);
    EXPECT_EQ(cluster.rows("Cluster").at(0).at("SeededBy"), "attic");
}

TEST_F(SeedTest, ATextThatCantBeHeldIsNamed) {
    SharedOperations operations;
    const auto result =
        appendSeed(schema(), {{plans, 5, "", planCells("Night", "\xff")}}, "attic", operations);
    EXPECT_EQ(result.code(), code::wrongKind);
    EXPECT_EQ(result.detail(), "Plans.5 Start: a text that is not UTF-8");
}

} // namespace
