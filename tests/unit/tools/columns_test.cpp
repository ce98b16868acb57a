#include "rows.h"
#include "tools/cfgctl/columns.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

namespace tools::cfgctl {
namespace {

using namespace testing;
using velta::Value;

Descriptions someColumns() {
    return {
        {"Id", Value::Integer, "INTEGER", number(Value::Integer, 1), number(Value::Integer, 2147483647),
         Value()},
        {"Uses", Value::Counter, "COUNTER", number(Value::Counter, 0), number(Value::Counter, 4294967295),
         number(Value::Counter, 4294967295)},
        {"Start", Value::Text, "TIME", Value(), Value(), text("08:00")},
        {"Comment", Value::Text, "TEXT", Value(), Value(), text("")},
    };
}

const Names sharedColumns = {"Start", "Comment"};

TEST(Columns, AreShownWithRangeAndDefaultAndWhetherTheyAreShared) {
    EXPECT_EQ(aligned(columnsAsText(someColumns(), sharedColumns)),
              "COLUMN   TYPE     RANGE            DEFAULT     SHARED\n"
              "Id       INTEGER  1 to 2147483647\n"
              "Uses     COUNTER  0 to 4294967295  4294967295\n"
              "Start    TIME                      08:00       yes\n"
              "Comment  TEXT                      \"\"          yes\n");
}

TEST(Columns, HaveNoMemberInJsonForWhatTheyHaveNot) {
    EXPECT_EQ(
        columnsAsJson(someColumns(), sharedColumns).dump(),
        R"([{"column":"Id","type":"INTEGER","least":1,"most":2147483647,"shared":false},)"
        R"({"column":"Uses","type":"COUNTER","least":0,"most":4294967295,"default":4294967295,"shared":false},)"
        R"({"column":"Start","type":"TIME","default":"08:00","shared":true},)"
        R"({"column":"Comment","type":"TEXT","default":"","shared":true}])");
}

} // namespace
} // namespace tools::cfgctl
