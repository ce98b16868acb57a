#include "rows.h"
#include "tools/cfgctl/commands.h"
#include "tools/errors.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tools::cfgctl {
namespace {

using ::testing::ElementsAre;
using testing::errorOf;

TEST(Target, IsATableOrARowOfIt) {
    EXPECT_EQ(parseTarget("WlanGlobals").table, "WlanGlobals");
    EXPECT_FALSE(parseTarget("WlanGlobals").id.has_value());
    EXPECT_EQ(parseTarget("WlanTimePlans.42").table, "WlanTimePlans");
    EXPECT_EQ(parseTarget("WlanTimePlans.42").id, 42U);
}

TEST(Target, WithoutAnIdBehindTheDotIsRefused) {
    for (const char* given : {"T.", "T.x", "T.1x", "T.-1", "T.1.2", "T.4294967296"})
        EXPECT_EQ(errorOf<WrongUse>([&] { return parseTarget(given); }),
                  "\"" + std::string(given) + "\": what stands behind the dot is not an Id");
}

TEST(RowTarget, NeedsAnId) {
    EXPECT_EQ(parseRowTarget("T.1").id, 1U);
    EXPECT_EQ(errorOf<WrongUse>([] { return parseRowTarget("T"); }), "\"T\" is not TABLE.ID");
}

TEST(CellArguments, EndTheColumnAtTheFirstSign) {
    EXPECT_THAT(parseCells({"a=1", "b=", "c=x=y"}),
                ElementsAre(CellText("a", "1"), CellText("b", ""), CellText("c", "x=y")));
}

TEST(CellArguments, WithoutColumnOrSignAreRefused) {
    for (const char* given : {"a", "=1", ""})
        EXPECT_EQ(errorOf<WrongUse>([&] { return parseCells({given}); }),
                  "\"" + std::string(given) + "\" is not COLUMN=VALUE");
}

TEST(CellArguments, NameAColumnOnce) {
    EXPECT_EQ(errorOf<WrongUse>([] { return parseCells({"a=1", "a=2"}); }), "column \"a\" is given twice");
}

} // namespace
} // namespace tools::cfgctl
