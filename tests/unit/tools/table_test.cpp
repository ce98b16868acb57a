#include "tools/table.h"

#include <string>

#include <gtest/gtest.h>

namespace cfgctl {
namespace {

TEST(AlignedTable, SetsColumnsBelowEachOther) {
    EXPECT_EQ(aligned({{"Id", "Name"}, {"1", "weekend"}, {"100", "x"}}), "Id   Name\n"
                                                                         "1    weekend\n"
                                                                         "100  x\n");
}

TEST(AlignedTable, HasNoBlanksAtTheEndOfALine) {
    EXPECT_EQ(aligned({{"Id", "Start", "Stop"}, {"1", "", ""}}), "Id  Start  Stop\n"
                                                                 "1\n");
}

TEST(AlignedTable, KeepsThePlaceOfAnEmptyCell) {
    EXPECT_EQ(aligned({{"Id", "Start", "Stop"}, {"1", "", "7"}}), "Id  Start  Stop\n"
                                                                  "1          7\n");
}

TEST(AlignedTable, CountsCharactersNotBytes) {
    EXPECT_EQ(aligned({{"\xc3\xa4\xc3\xa4", "x"}, {"aa", "x"}}), "\xc3\xa4\xc3\xa4  x\n"
                                                                 "aa  x\n");
}

TEST(AlignedTable, AlignsBySpelledOutControlCharacters) {
    EXPECT_EQ(aligned({{"a\nb", "x"}, {"\x1b", "x"}}), "a\\nb  x\n"
                                                       "\\x1b  x\n");
}

TEST(AlignedTable, OfNoRowsPrintsNothing) {
    EXPECT_EQ(aligned({}), "");
}

} // namespace
} // namespace cfgctl
