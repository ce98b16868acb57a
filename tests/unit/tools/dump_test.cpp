#include "rows.h"
#include "tools/dump.h"
#include "tools/errors.h"

#include <gtest/gtest.h>

namespace cfgctl {
namespace {

using namespace testing;

TEST(Dump, OfASingleRowTableIsAnObject) {
    EXPECT_EQ(rowsAsJson(true, {globals(1)}).dump(), R"({"WlanEnable":1})");
}

TEST(Dump, OfManyRowsIsAListWithTheColumnsInOrder) {
    EXPECT_EQ(rowsAsJson(false, {plan(2, "b", 0)}).dump(),
              R"([{"Id":2,"TimePlanName":"b","TimePlanStatus":0}])");
}

TEST(Dump, OfAnEmptyTableIsAnEmptyList) {
    EXPECT_EQ(rowsAsJson(false, {}).dump(), "[]");
}

TEST(Dump, RefusesATextThatJsonCannotHold) {
    const Rows rows = {plan(1, "fine", 0), plan(2, "caf\xe9", 0)};
    const auto check = [&] {
        requireUtf8({"WlanTimePlans", false}, rows);
        return true;
    };
    EXPECT_EQ(errorOf(check), "WlanTimePlans.2 TimePlanName: its text is not UTF-8, JSON can't hold it");
}

} // namespace
} // namespace cfgctl
