#include "store/cluster/clusternews.h"
#include "unit/storage/testtables.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using store::ClusterNews;
using store::Json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* household = R"(
CREATE TABLE Local (Enable SWITCH NOT NULL DEFAULT 0);
CREATE TABLE Plans (
    Id     INTEGER PRIMARY KEY,
    Status SWITCH NOT NULL DEFAULT 0,
    Name   TEXT NOT NULL DEFAULT 'none' SHARED,
    Day    INTEGER(0, 7) NOT NULL DEFAULT 3 SHARED,
    Start  TIME NOT NULL DEFAULT '8:00' SHARED
);
CREATE TABLE Globals (Enable SWITCH NOT NULL DEFAULT 0, Always SWITCH NOT NULL DEFAULT 1 SHARED);
)";

const store::Schema& schema() {
    static const store::Schema tables = schemaOf(household);
    return tables;
}

// "Plans u1: Id 3 Name=Night Day=7 Start=22:00"; cells that did not come are left out.
std::string textOf(const store::SharedUpdate& row) {
    const store::Table& table = schema().tables().at(row.table);
    std::string text = table.name + ' ' + row.uuid + ':';
    if (!row.values)
        return text + " removed";
    if (row.values->id)
        text += " Id " + std::to_string(*row.values->id);
    const velta::NameList columns = table.sharedColumns();
    for (std::size_t i = 0; i < row.values->cells.size(); ++i)
        if (const auto& value = row.values->cells[i])
            text += ' ' + columns.at(i) + '=' + value->getText();
    return text;
}

struct Read {
    ClusterNews news;
    std::string complaint;
    std::vector<std::string> rows;
    std::vector<std::string> refused; // why
};

Read readText(const std::string& tables) {
    Read read;
    read.complaint = readNews(schema(), Json::parse(tables), read.news);
    for (const store::SharedUpdate& row : read.news.rows)
        read.rows.push_back(textOf(row));
    for (const ClusterNews::Refusal& refusal : read.news.refused)
        read.refused.push_back(refusal.reason);
    return read;
}

struct Understood {
    const char* told; // as JSON
    std::vector<std::string> rows;
};

class NewsOfRowsTest : public testing::TestWithParam<Understood> {};

TEST_P(NewsOfRowsTest, AreTranslated) {
    const Read read = readText(GetParam().told);
    EXPECT_EQ(read.complaint, "");
    EXPECT_EQ(read.rows, GetParam().rows);
    EXPECT_THAT(read.refused, IsEmpty());
    EXPECT_FALSE(read.news.seed || read.news.token || read.news.done);
}

const Understood understood[] = {
    {"{}", {}},
    {R"({"Plans":{}})", {}},
    {R"({"Plans":{"u1":{"initial":{"Id":3,"Name":"Night","Day":7,"Start":"22:00"}}}})",
     {"Plans u1: Id 3 Name=Night Day=7 Start=22:00"}},
    {R"({"Plans":{"u1":{"insert":{"Id":3,"Name":"Night","Day":7,"Start":"22:00"}}}})",
     {"Plans u1: Id 3 Name=Night Day=7 Start=22:00"}},
    // A member leaves out what has the default of the type in its schema, which is not that of ours.
    {R"({"Plans":{"u1":{"initial":{"Id":3}}}})", {"Plans u1: Id 3 Name= Day=0 Start="}},
    {R"({"Plans":{"u1":{"insert":{"Id":3,"Name":"Night"}}}})", {"Plans u1: Id 3 Name=Night Day=0 Start="}},
    {R"({"Plans":{"u1":{"insert":{}}}})", {"Plans u1: Id 0 Name= Day=0 Start="}},
    {R"({"Plans":{"u1":{"modify":{"Day":0}}}})", {"Plans u1: Day=0"}},
    {R"({"Plans":{"u1":{"modify":{"Name":"","Start":"6:30:15"}}}})", {"Plans u1: Name= Start=6:30:15"}},
    {R"({"Plans":{"u1":{"modify":{}}}})", {"Plans u1:"}},
    {R"({"Plans":{"u1":{"modify":{"Id":4}}}})", {"Plans u1: Id 4"}},
    {R"({"Plans":{"u1":{"delete":null}}})", {"Plans u1: removed"}},
    {R"({"Plans":{"u1":{"delete":{"Name":"what it was"}}}})", {"Plans u1: removed"}},
    {R"({"Globals":{"g":{"initial":{"Always":1}}}})", {"Globals g: Always=1"}},
    {R"({"Globals":{"g":{"initial":{}}}})", {"Globals g: Always=0"}},
    {R"({"Globals":{"g":{"modify":{"Always":1,"Id":7}}}})", {"Globals g: Always=1"}},
    {R"({"Globals":{"g":{"delete":null}}})", {"Globals g: removed"}},
    // What this device's schema does not share is the business of others.
    {R"({"Plans":{"u1":{"modify":{"Status":1,"Colour":"red","Day":5}}}})", {"Plans u1: Day=5"}},
    {R"({"Globals":{"g":{"modify":{"Enable":7}}}})", {"Globals g:"}},
    {R"({"Local":{"l":{"insert":{"Enable":1}}}})", {}},
    {R"({"Lamps":{"l":{"insert":{"Id":"x"}},"m":{"modify":{}},"n":{"delete":null}}})", {}},
    {R"({"Reserved":{"r":{"insert":{"Token":7,"SeededBy":"x"}}}})", {}},
    // Several rows of several tables.
    {R"({"Plans":{"u1":{"delete":null},"u2":{"insert":{"Id":1,"Name":"Day"}}},"Globals":{"g":{"modify":{"Always":0}}}})",
     {"Globals g: Always=0", "Plans u1: removed", "Plans u2: Id 1 Name=Day Day=0 Start="}},
};

INSTANTIATE_TEST_SUITE_P(Tables, NewsOfRowsTest, testing::ValuesIn(understood));

struct Refused {
    const char* row; // as JSON
    const char* reason;
};

class RefusedRowTest : public testing::TestWithParam<Refused> {};

TEST_P(RefusedRowTest, IsNamedAndTheOthersAreTaken) {
    const Read read = readText(R"({"Plans":{"a":{"insert":{"Id":1}},"u1":)" + std::string(GetParam().row) +
                               R"(,"z":{"delete":null}}})");
    EXPECT_EQ(read.complaint, "");
    EXPECT_THAT(read.rows, ElementsAre("Plans a: Id 1 Name= Day=0 Start=", "Plans z: removed"));
    EXPECT_THAT(read.refused, ElementsAre(HasSubstr(GetParam().reason)));
}

const Refused refused[] = {
    {R"({"insert":{"Id":3,"Day":8}})", "Plans.3 Day: 8 is not an integer from 0 to 7"},
    {R"({"initial":{"Id":3,"Day":-1}})", "Plans.3 Day: -1 is not an integer from 0 to 7"},
    {R"({"modify":{"Day":8}})", "Plans (u1) Day: 8 is not an integer from 0 to 7"},
    {R"({"modify":{"Day":"1"}})", R"(Plans (u1) Day: "1" is not an integer)"},
    {R"({"modify":{"Day":1.0}})", "Plans (u1) Day: 1.0 is not an integer"},
    {R"({"modify":{"Day":null}})", "Plans (u1) Day: null is not an integer"},
    {R"({"modify":{"Day":["set",[]]}})", "Plans (u1) Day: a set is not an integer"},
    {R"({"modify":{"Day":99999999999999999999}})", "Plans (u1) Day: 1e+20 is not an integer"},
    {R"({"modify":{"Name":5}})", "Plans (u1) Name: 5 is not a text"},
    {R"({"modify":{"Name":["map",[]]}})", "Plans (u1) Name: a map is not a text"},
    {R"({"modify":{"Name":"a\u0000b"}})", "Plans (u1) Name: a text with a zero character"},
    {R"({"insert":{"Id":3,"Name":"good","Start":"24:01"}})",
     R"(Plans.3 Start: "24:01" is not a time of day)"},
};

INSTANTIATE_TEST_SUITE_P(Rows, RefusedRowTest, testing::ValuesIn(refused));

TEST(ClusterNewsTest, EachRefusedRowIsNamedOnce) {
    const Read read = readText(
        R"({"Plans":{"u1":{"insert":{"Id":1,"Day":8,"Start":"x"}},"u2":{"insert":{"Id":2,"Day":9}}}})");
    EXPECT_THAT(read.rows, IsEmpty());
    EXPECT_THAT(read.refused, ElementsAre(HasSubstr("Plans.1 Day: 8"), HasSubstr("Plans.2 Day: 9")));
    EXPECT_EQ(read.news.refused.at(1).uuid, "u2");
}

TEST(ClusterNewsTest, ARefusedSingleRowIsNamedByItsTable) {
    EXPECT_THAT(readText(R"({"Globals":{"g":{"modify":{"Always":2}}}})").refused,
                ElementsAre("Globals Always: 2 is not a switch, 0 or 1"));
}

// The storage says what is wrong with an Id; a number that is none comes as if it were missing.
TEST(ClusterNewsTest, AnIdThatIsNoNumberIsMissing) {
    const Read read =
        readText(R"({"Plans":{"u1":{"insert":{"Id":"3"}},"u2":{"insert":{"Id":9223372036854775808}}}})");
    EXPECT_EQ(read.complaint, "");
    EXPECT_THAT(read.rows, ElementsAre("Plans u1: Name= Day=0 Start=", "Plans u2: Name= Day=0 Start="));
}

struct Malformed {
    const char* told; // as JSON
    const char* complaint;
};

class MalformedNewsTest : public testing::TestWithParam<Malformed> {};

TEST_P(MalformedNewsTest, AreAComplaintThatNamesTheTable) {
    EXPECT_EQ(readText(GetParam().told).complaint, GetParam().complaint);
}

const Malformed malformed[] = {
    {R"({"Plans":[]})", "table Plans: malformed"},
    {R"({"Plans":null})", "table Plans: malformed"},
    {R"({"Lamps":7})", "table Lamps: malformed"},
    {R"({"La\nmps":7})", "table La?mps: malformed"},
    {R"({"Plans":{"u1":null}})", "table Plans: a malformed row"},
    {R"({"Plans":{"u1":[]}})", "table Plans: a malformed row"},
    {R"({"Plans":{"u1":{}}})", "table Plans: a malformed row"},
    {R"({"Plans":{"u1":{"new":{"Id":3}}}})", "table Plans: a malformed row"},
    {R"({"Plans":{"u1":{"insert":null}}})", "table Plans: a malformed row"},
    {R"({"Plans":{"u1":{"insert":[["Id",3]]}}})", "table Plans: a malformed row"},
    {R"({"Plans":{"u1":{"modify":"Name"}}})", "table Plans: a malformed row"},
    {R"({"Cluster":{"c":{"insert":7}}})", "table Cluster: a malformed row"},
    {R"({"Devices":{"d":true}})", "table Devices: a malformed row"},
    {R"({"Lamps":{"l":{"insert":7}}})", "table Lamps: a malformed row"},
};

INSTANTIATE_TEST_SUITE_P(Tables, MalformedNewsTest, testing::ValuesIn(malformed));

TEST(ClusterNewsTest, TheRowOfTheClusterTellsItsIdentity) {
    for (const char* const kind : {"initial", "insert", "modify"}) {
        const ClusterNews news =
            readText(R"({"Cluster":{"c1":{")" + std::string(kind) + R"(":{"SeededBy":"attic"}}}})").news;
        ASSERT_TRUE(news.seed) << kind;
        EXPECT_EQ(news.seed->uuid, "c1");
        EXPECT_EQ(news.seed->by, "attic");
        EXPECT_THAT(news.rows, IsEmpty());
    }
}

TEST(ClusterNewsTest, AClusterOfWhichNobodySaysWhoFilledItIsOneStill) {
    for (const char* const cells : {R"({})", R"({"SeededBy":7})", R"({"SeededBy":["set",[]]})"}) {
        const ClusterNews news =
            readText(R"({"Cluster":{"c1":{"initial":)" + std::string(cells) + "}}}").news;
        ASSERT_TRUE(news.seed) << cells;
        EXPECT_EQ(news.seed->by, "");
    }
}

TEST(ClusterNewsTest, ARemovedRowOfTheClustersOwnTablesTellsNothing) {
    const ClusterNews news =
        readText(R"({"Cluster":{"c1":{"delete":null}},"Devices":{"d":{"delete":null}}})").news;
    EXPECT_FALSE(news.seed || news.token || news.done);
}

struct OfDevice {
    const char* row; // as JSON
    std::optional<std::int64_t> token;
    std::optional<std::int64_t> done;
};

class NewsOfDeviceTest : public testing::TestWithParam<OfDevice> {};

TEST_P(NewsOfDeviceTest, TellItsNumbers) {
    const Read read = readText(R"({"Devices":{"d":)" + std::string(GetParam().row) + "}}");
    EXPECT_EQ(read.complaint, "");
    EXPECT_EQ(read.news.token, GetParam().token);
    EXPECT_EQ(read.news.done, GetParam().done);
}

const OfDevice ofDevice[] = {
    {R"({"initial":{"Token":7,"Done":6}})", 7, 6},
    {R"({"insert":{"Token":7}})", 7, 0},
    {R"({"initial":{}})", 0, 0},
    {R"({"modify":{"Token":8,"Done":8}})", 8, 8},
    {R"({"modify":{"Token":9}})", 9, std::nullopt},
    {R"({"modify":{"Done":9}})", std::nullopt, 9},
    {R"({"modify":{}})", std::nullopt, std::nullopt},
    {R"({"modify":{"Token":"8","Done":[]}})", std::nullopt, std::nullopt},
};

INSTANTIATE_TEST_SUITE_P(Rows, NewsOfDeviceTest, testing::ValuesIn(ofDevice));

TEST(MonitorRequestsTest, AskForWhatIsSharedAndForThisDevice) {
    const Json expected = Json::parse(R"({
        "Plans": [{"columns": ["Name", "Day", "Start", "Id"]}],
        "Globals": [{"columns": ["Always"]}],
        "Cluster": [{"columns": ["SeededBy"]}],
        "Devices": [{"columns": ["Token", "Done"], "where": [["Name", "==", "attic"]]}]})");
    EXPECT_EQ(monitorRequests(schema(), "attic"), expected);
}

} // namespace
