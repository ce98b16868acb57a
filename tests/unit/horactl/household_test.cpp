#include "cfg/configclient.h"
#include "cfg/connection.h"
#include "support/scriptedserver.h"
#include "support/temporarydirectory.h"
#include "tools/errors.h"
#include "tools/horactl/household.h"
#include "tools/storetables.h"
#include "unit/horactl/weekhouse.h"

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tools::horactl::testing {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using velta::Value;

namespace {

using Names = std::list<std::string>;

Household householdOf(const std::string& dump, const Names& planTables = {}) {
    const TemporaryDirectory folder;
    writeFile(folder.path("dump"), dump);
    LoadSource source(folder.path("dump"));
    return readDump(source, planTables);
}

std::string refusalOf(const std::function<void()>& work) {
    try {
        work();
    } catch (const Refused& refused) {
        return refused.what();
    }
    return "";
}

std::vector<int> idsOf(const Household& household, const std::string& table) {
    std::vector<int> ids;
    for (const velta::ValueList& row : household.rows(table))
        ids.push_back(orv::simulation::idOf(row));
    return ids;
}

std::string cell(const Household& household, const std::string& table, const std::string& column,
                 int id = 0) {
    const velta::ValueList* const row = household.row(table, id);
    return row != nullptr && row->hasValue(column) ? row->getValue(column).getText() : "-";
}

TEST(DumpedHousehold, HasTheDefaultsOfANewRow) {
    const Household household =
        householdOf(R"({"TimePlans": [{"Id": 3, "StartMon": "08:00"}], "AutoReboot": {"Enable": 1}})");
    EXPECT_EQ(cell(household, "TimePlans", "StartMon", 3), "08:00");
    EXPECT_EQ(cell(household, "TimePlans", "StopMon", 3), "");
    EXPECT_EQ(cell(household, "TimePlans", "Activate", 3), "1");
    EXPECT_EQ(cell(household, "AutoReboot", "Enable"), "1");
    EXPECT_EQ(cell(household, "AutoReboot", "MinimumRuntime"), "5400");
    EXPECT_EQ(household.row("TimePlans", 3)->getValue("Activate").type(), Value::Switch);
}

TEST(DumpedHousehold, GivesRowsWithoutAnIdTheNextFreeOnes) {
    EXPECT_THAT(idsOf(householdOf(R"({"TimePlans": [{}, {"Id": 7}, {}]})"), "TimePlans"),
                ElementsAre(7, 8, 9));
    EXPECT_THAT(idsOf(householdOf(R"({"TimePlans": [{}, {}]})"), "TimePlans"), ElementsAre(1, 2));
    EXPECT_THAT(idsOf(householdOf(R"({"TimePlans": [{"Id": -1}, {}]})"), "TimePlans"), ElementsAre(-1, 1));
    const Household household =
        householdOf(R"({"TimePlans": [{"TimePlanName": "a"}, {"Id": 4}], "FileTransfer": [{}]})");
    EXPECT_EQ(cell(household, "TimePlans", "TimePlanName", 5), "a");
    EXPECT_THAT(idsOf(household, "FileTransfer"), ElementsAre(1));
}

TEST(DumpedHousehold, HasItsRowsInIdOrder) {
    const Household household =
        householdOf(R"({"WlanTimePlans": [{"Id": 3}, {"Id": 1, "TimePlanName": "a"}, {"Id": 2}]})");
    EXPECT_THAT(idsOf(household, "WlanTimePlans"), ElementsAre(1, 2, 3));
    EXPECT_EQ(cell(household, "WlanTimePlans", "TimePlanName", 1), "a");
}

TEST(DumpedHousehold, KeepsTablesAndColumnsThatANewStoreHasNot) {
    const Household household = householdOf(
        R"({"Lights": [{"Id": 2, "Big": 4000000000, "Small": -5, "Text": "x"}], "Lamp": {"On": 1},
            "TimePlans": [{"Id": 1, "Colour": "red"}]})");
    EXPECT_EQ(cell(household, "Lights", "Small", 2), "-5");
    EXPECT_EQ(cell(household, "Lights", "Text", 2), "x");
    EXPECT_EQ(household.row("Lights", 2)->getValue("Big").type(), Value::Counter);
    EXPECT_EQ(cell(household, "Lamp", "On"), "1");
    EXPECT_EQ(cell(household, "TimePlans", "Colour", 1), "red");
    EXPECT_THAT(household.planTables, Not(Contains("Lights")));
}

struct RefusedDump {
    const char* dump;
    const char* why;
};

TEST(DumpedHousehold, RefusesWhatIsNoneAndSaysWhere) {
    const RefusedDump cases[] = {
        {R"({"TimePlans": [{"Id": 1}, {"Id": 2}, {"Id": 1}]})",
         "table TimePlans, row 3: Id 1 stands there twice"},
        {R"({"TimePlans": [{"Id": 1, "Activate": "yes"}]})",
         "table TimePlans, row 1: Activate: the text \"yes\" is not a switch, 0 or 1"},
        {R"({"TimePlans": [{"Id": 1}, {"Id": 2, "Activate": 2}]})",
         "table TimePlans, row 2: Activate: the number 2 is not a switch, 0 or 1"},
        {R"({"TimePlans": [{"StartMon": 800}]})",
         "table TimePlans, row 1: StartMon: the number 800 is not a text"},
        {R"({"WlanGlobals": {"WlanEnable": "1"}})",
         "table WlanGlobals: WlanEnable: the text \"1\" is not a switch, 0 or 1"},
        {R"({"Lights": [{"Id": 1, "Number": 5000000000}]})",
         "table Lights, row 1: Number: the number 5000000000"},
        {R"({"TimePlans": {"Id": 1}})",
         "table TimePlans: it has many rows, a list is expected, not an object"},
        {R"({"WlanGlobals": [{"WlanEnable": 1}]})",
         "table WlanGlobals: it has a single row, an object is expected, not a list"},
        {R"({"TimePlans": [{"Id": 1, "Id": 2}]})", "column \"Id\" stands there twice"},
        {R"({"TimePlans": [], "TimePlans": []})", "table \"TimePlans\" stands there twice"},
        {R"({"TimePlans": [{"StartMon": null}]})", "a whole number or a text is expected"},
        {R"({"TimePlans": [{"Id": 1)", "unexpected end of input"},
        {"", "unexpected end of input"},
        {"[]", "an object with the tables is expected"},
        {R"({"TimePlans": [{"Id": 2147483647}, {}]})",
         "table TimePlans: no Id is left for a row without one"},
    };
    for (const RefusedDump& one : cases)
        EXPECT_THAT(refusalOf([&] { (void)householdOf(one.dump); }), HasSubstr(one.why)) << one.dump;
}

TEST(DumpedHousehold, FollowsTheTablesThatHaveTheColumnsOfPlans) {
    const Household own =
        householdOf(R"({"WlanTimePlans": [], "TimePlans": [], "FileTransfer": [{"Id": 1}]})");
    EXPECT_THAT(own.planTables, ElementsAre("TimePlans", "WlanTimePlans"));

    std::string columns = R"("Id": 1, "TimePlanName": "a", "TimePlanStatus": 0, "Activate": 1)";
    for (const std::string day : orv::simulation::weekDays)
        columns += ", \"Start" + day + "\": \"\", \"Stop" + day + "\": \"\"";
    EXPECT_THAT(householdOf("{\"Lights\": [{" + columns + "}]}").planTables, Contains("Lights"));
    columns.resize(columns.rfind(','));
    EXPECT_THAT(householdOf("{\"Lights\": [{" + columns + "}]}").planTables, Not(Contains("Lights")));
}

TEST(DumpedHousehold, FollowsTheTablesThatAreNamed) {
    const Household household = householdOf(
        R"({"WlanTimePlans": [], "Lights": [{"Id": 1, "StartMon": "08:00"}]})", {"Lights", "Ghost"});
    EXPECT_THAT(household.planTables, ElementsAre("Lights", "Ghost"));
    EXPECT_EQ(cell(household, "Lights", "Activate", 1), "1"); // a plan's
    EXPECT_THAT(household.notes, Contains("there is no table \"Ghost\": taken as empty"));
    EXPECT_THAT(household.notes, Not(Contains(HasSubstr("Lights"))));
}

TEST(DumpedHousehold, NotesWhatIsNotThereAndTakesItAsANewStoreHasIt) {
    const Household household = householdOf(R"({"TimePlans": [], "Reboot": {"Trigger": 0}})");
    EXPECT_THAT(household.notes,
                ElementsAre("there is no table \"WlanGlobals\": taken as that of a new store",
                            "there is no table \"WlanTimePlans\": taken as empty",
                            "there is no table \"TimeFrame\": taken as empty",
                            "there is no table \"FileTransfer\": taken as empty",
                            "there is no table \"FirmwareUpdateTimePlan\": taken as empty",
                            "there is no table \"wexd\": taken as that of a new store",
                            "there is no table \"AutoReboot\": taken as that of a new store"));
    EXPECT_EQ(cell(household, "AutoReboot", "MinimumRuntime"), "5400");
    EXPECT_THAT(household.rows("TimeFrame"), IsEmpty());
    EXPECT_EQ(household.tables.count("TimeFrame"), 1U);
}

TEST(DumpedHousehold, MayBeEmpty) {
    const Household household = householdOf("{}");
    EXPECT_EQ(household.notes.size(), 8U);
    EXPECT_EQ(cell(household, "WlanGlobals", "WlanEnable"), "0");
}

TEST(AnyHousehold, HasNoRowWhereThereIsNone) {
    const Household household = householdOf(R"({"TimePlans": [{"Id": 1}]})");
    EXPECT_NE(household.row("TimePlans", 1), nullptr);
    EXPECT_EQ(household.row("TimePlans", 2), nullptr);
    EXPECT_EQ(household.row("TimePlans"), nullptr);
    EXPECT_EQ(household.row("Ghost", 1), nullptr);
    EXPECT_NE(household.row("WlanGlobals"), nullptr);
}

// A store with the tables that it is given.
class StoredHousehold : public ::testing::Test {
protected:
    using RequestKind = velta::protocol::RequestKind;

    void addTable(const std::string& name, const std::vector<velta::ValueList>& rows,
                  const std::string& shape = "") {
        tables_.push_back({name, !orv::simulation::findShape(shape.empty() ? name : shape)->hasManyRows()});
        shapes_[name] = shape.empty() ? name : shape;
        store.setTable(name, rows);
    }
    void addNewStore() {
        for (const orv::simulation::TableShape& shape : orv::simulation::schema())
            if (shapes_.count(shape.name) == 0)
                addTable(shape.name, shape.hasManyRows() ? std::vector<velta::ValueList>{}
                                                         : std::vector<velta::ValueList>{shape.newRow()});
    }
    Household read(const Names& planTables = {}) {
        store.answer(RequestKind::Tables, [this](const velta::protocol::Request& request) {
            velta::protocol::Reply reply = fakes::replyTo(request, velta::protocol::ReplyKind::Tables);
            reply.tables = tables_;
            return fakes::frameOf(reply);
        });
        store.answer(RequestKind::Columns, [this](const velta::protocol::Request& request) {
            velta::protocol::Reply reply = fakes::replyTo(request, velta::protocol::ReplyKind::Columns);
            for (const auto& column : orv::simulation::findShape(shapes_.at(request.table))->columns)
                reply.columns.push_back({column.name, column.type});
            return fakes::frameOf(reply);
        });
        constexpr unsigned patience = 10; // seconds
        orv::cfg::Connection connection(store.socketPath(), "test", patience);
        tools::connect(connection, store.socketPath());
        orv::cfg::ConfigClient client(connection, 0);
        return readStore(client, planTables);
    }

    fakes::ScriptedServer store;

private:
    std::vector<velta::protocol::TableInfo> tables_;
    std::map<std::string, std::string> shapes_;
};

TEST_F(StoredHousehold, HasTheStoresTables) {
    addTable("TimePlans", {row("TimePlans", 2, {{"StartMon", "08:00"}}), row("TimePlans", 9, {})});
    addNewStore();
    const Household household = read();
    EXPECT_THAT(idsOf(household, "TimePlans"), ElementsAre(2, 9));
    EXPECT_EQ(cell(household, "TimePlans", "StartMon", 2), "08:00");
    EXPECT_EQ(cell(household, "AutoReboot", "MinimumRuntime"), "5400");
    EXPECT_THAT(household.notes, IsEmpty());
}

TEST_F(StoredHousehold, FollowsTheTablesThatHaveTheColumnsOfPlans) {
    addTable("Lights", {}, "TimePlans");
    addNewStore();
    EXPECT_THAT(read().planTables, ElementsAre("Lights", "WlanTimePlans", "TimePlans"));
    EXPECT_EQ(read().tables.count("Lights"), 1U);
}

TEST_F(StoredHousehold, FollowsTheTablesThatAreNamed) {
    addTable("Lights", {row("TimePlans", 1, {})}, "TimePlans");
    addNewStore();
    const Household household = read({"Lights", "Ghost"});
    EXPECT_THAT(household.planTables, ElementsAre("Lights", "Ghost"));
    EXPECT_THAT(idsOf(household, "Lights"), ElementsAre(1));
    EXPECT_THAT(household.notes, ElementsAre("there is no table \"Ghost\": taken as empty"));
    EXPECT_EQ(household.tables.count("TimePlans"), 0U); // no horad with these tables asks for it
}

TEST_F(StoredHousehold, HasTheTablesOfTheServicesThatFramesName) {
    addTable("TimeFrame", {row("TimeFrame", 1, {{"Servicetable", "Backup"}})});
    addTable("Backup", {row("FileTransfer", 5, {})}, "FileTransfer");
    addTable("Other", {row("FileTransfer", 6, {})}, "FileTransfer");
    addNewStore();
    const Household household = read();
    EXPECT_THAT(idsOf(household, "Backup"), ElementsAre(5));
    EXPECT_EQ(household.tables.count("Other"), 0U);
}

TEST_F(StoredHousehold, NotesWhatIsNotThere) {
    addTable("WlanTimePlans", {});
    EXPECT_THAT(read().notes,
                AllOf(Contains("there is no table \"AutoReboot\": taken as that of a new store"),
                      Contains("there is no table \"TimeFrame\": taken as empty")));
}

TEST_F(StoredHousehold, IsRefusedWhereTheStoreGoesAway) {
    addNewStore();
    store.closeWithin(RequestKind::ReadTable, 0);
    EXPECT_EQ(refusalOf([this] { (void)read(); }), "the connection to the configuration store is lost");
}

TEST_F(StoredHousehold, IsRefusedWhereTheStoreRefuses) {
    addNewStore();
    store.refuse(RequestKind::ReadTable, velta::protocol::code::failure);
    EXPECT_THAT(refusalOf([this] { (void)read(); }), Not(IsEmpty()));
}

} // namespace

} // namespace tools::horactl::testing
