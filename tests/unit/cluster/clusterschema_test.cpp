#include "store/cluster/clusterschema.h"
#include "support/temporarydirectory.h"

#include <cstdlib>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using store::clusterSchemaOf;
using store::complaintOfSchema;
using store::complaintOfSharedTables;
using store::Json;
using store::Schema;

constexpr const char* household = R"(
CREATE TABLE Plans (
    Id       INTEGER PRIMARY KEY,
    Name     TEXT NOT NULL DEFAULT 'new' SHARED,
    Activate SWITCH NOT NULL DEFAULT 1 SHARED,
    StartMon TIME NOT NULL DEFAULT '' SHARED,
    Status   SWITCH NOT NULL DEFAULT 0
);
CREATE TABLE Globals (
    Enable SWITCH NOT NULL DEFAULT 0,
    Limit_ COUNTER NOT NULL DEFAULT 0 SHARED
);
CREATE TABLE Local (Enable SWITCH NOT NULL DEFAULT 0);
)";

Schema schemaOf(const char* sql) {
    Schema schema;
    schema.add(sql, "of a test");
    return schema;
}

TEST(ClusterSchemaTest, HoldsWhatIsSharedAndTheClustersOwnTables) {
    const Json integer{{"type", "integer"}};
    const Json text{{"type", "string"}};
    const Json expected = {
        {"name", "horad"},
        {"version", "1.0.0"},
        {"tables",
         {{"Plans",
           {{"columns",
             {{"Id", {{"type", "integer"}, {"mutable", false}}},
              {"Name", text},
              {"Activate", integer},
              {"StartMon", text}}},
            {"indexes", Json::array({Json::array({"Id"})})},
            {"isRoot", true}}},
          {"Globals", {{"columns", {{"Limit_", integer}}}, {"maxRows", 1}, {"isRoot", true}}},
          {"Devices",
           {{"columns", {{"Name", text}, {"Token", integer}, {"Done", integer}, {"Probe", integer}}},
            {"indexes", Json::array({Json::array({"Name"})})},
            {"isRoot", true}}},
          {"Cluster",
           {{"columns", {{"SchemaVersion", integer}, {"SeededBy", text}}}, {"maxRows", 1}, {"isRoot", true}}},
          {"Reserved",
           {{"columns", {{"Table", text}, {"Id", integer}, {"Device", text}}},
            {"indexes", Json::array({Json::array({"Table", "Id"})})},
            {"isRoot", true}}}}}};
    EXPECT_EQ(clusterSchemaOf(schemaOf(household)), expected);
}

// Quiet, so that its exit code says it all.
int createDatabase(const TemporaryDirectory& directory, const Json& schema) {
    writeFile(directory.path("schema"), schema.dump());
    const std::string command =
        "ovsdb-tool create " + directory.path("db") + ' ' + directory.path("schema") + " 2>/dev/null";
    return std::system(command.c_str());
}

TEST(ClusterSchemaTest, IsTakenByTheToolThatCreatesAMember) {
    Schema standard;
    standard.add(store::defaultSchema(), "that is built in");
    const TemporaryDirectory directory;
    EXPECT_EQ(createDatabase(directory, clusterSchemaOf(standard)), 0);

    Json broken = clusterSchemaOf(standard);
    broken["tables"]["Cluster"]["columns"]["SeededBy"]["type"] = "text";
    const TemporaryDirectory other;
    EXPECT_NE(createDatabase(other, broken), 0);
}

TEST(ClusterSchemaTest, TableByTheNameOfTheClustersOwnCanNotBeShared) {
    EXPECT_EQ(complaintOfSharedTables(schemaOf(household)), "");
    EXPECT_EQ(complaintOfSharedTables(schemaOf("CREATE TABLE Devices (A TEXT NOT NULL DEFAULT '');")), "");
    EXPECT_EQ(complaintOfSharedTables(schemaOf("CREATE TABLE Devices (A TEXT NOT NULL DEFAULT '' SHARED);")),
              "the table Devices can't be shared: a cluster has one of its own by that name");
}

class MembersSchemaTest : public testing::Test {
protected:
    std::string complaint() const { return complaintOfSchema(schema, answer); }
    Json& table(const char* name) { return answer["tables"][name]; }
    Json& column(const char* name) { return table("Plans")["columns"][name]; }

    const Schema schema = schemaOf(household);
    Json answer = clusterSchemaOf(schema);
};

TEST_F(MembersSchemaTest, ThatIsOursIsTaken) {
    EXPECT_EQ(complaint(), "");
}

TEST_F(MembersSchemaTest, ThatHoldsMoreIsTaken) {
    answer["cksum"] = "1 2";
    column("Later") = {{"type", {{"key", "string"}, {"min", 0}, {"max", "unlimited"}}}};
    table("Later") = Json::object();
    table("Plans")["indexes"].push_back({"Name"});
    EXPECT_EQ(complaint(), "");
}

TEST_F(MembersSchemaTest, TypesMayBeWrittenInOtherWays) {
    column("Activate")["type"] = {{"key", "integer"}, {"min", 1}, {"max", 1}};
    column("Name")["type"] = {{"key", {{"type", "string"}, {"maxLength", 4096}}}};
    EXPECT_EQ(complaint(), "");
}

TEST_F(MembersSchemaTest, MissingColumnIsNamed) {
    table("Plans")["columns"].erase("StartMon");
    EXPECT_EQ(complaint(), "its schema is another one: there is no column Plans.StartMon");
}

TEST_F(MembersSchemaTest, ColumnsOfOtherTypesAreNamed) {
    const Json types[] = {"real",
                          5,
                          nullptr,
                          Json::array(),
                          Json{{"key", "integer"}, {"min", 0}},
                          Json{{"key", "integer"}, {"max", 2}},
                          Json{{"key", "integer"}, {"value", "integer"}},
                          Json{{"key", {{"type", 5}}}}};
    for (const Json& type : types) {
        column("Activate")["type"] = type;
        EXPECT_EQ(complaint(), "its schema is another one: Plans.Activate is not of the type integer")
            << type;
    }
}

TEST_F(MembersSchemaTest, MissingIndexIsNamed) {
    table("Plans").erase("indexes");
    table("Reserved")["indexes"] = Json::array({Json::array({"Id"})});
    EXPECT_EQ(complaint(), R"(its schema is another one: Plans has no index ["Id"], )"
                           R"(Reserved has no index ["Table","Id"])");
}

TEST_F(MembersSchemaTest, AFewDifferencesAreNamedAndTheOthersCounted) {
    answer = Json::object({{"tables", {{"Plans", {{"columns", 5}}}}}});
    EXPECT_EQ(complaint(), "its schema is another one: there is no table Cluster, there is no table Devices, "
                           "there is no table Globals, there is no column Plans.Activate, there is no column "
                           "Plans.Id, and 4 more");
}

TEST_F(MembersSchemaTest, WhatIsNoSchemaLacksAll) {
    for (const Json& nothing : {Json(), Json(5), Json::array({1}), Json("x"), Json{{"tables", 5}}}) {
        answer = nothing;
        EXPECT_THAT(complaint(),
                    testing::StartsWith("its schema is another one: there is no table Cluster, "));
    }
}

} // namespace
