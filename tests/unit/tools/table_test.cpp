#include "tools/table.h"

#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace tools {
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

TEST(AlignedTable, TakesARowThatIsShorterThanTheOthers) {
    EXPECT_EQ(aligned({{"Id", "Start", "Stop"}, {"1"}, {"2", "7", "8"}}), "Id  Start  Stop\n"
                                                                          "1\n"
                                                                          "2   7      8\n");
}

TEST(AlignedTable, CountsCharactersNotBytes) {
    EXPECT_EQ(aligned({{"\xc3\xa4\xc3\xa4", "x"}, {"aa", "x"}}), "\xc3\xa4\xc3\xa4  x\n"
                                                                 "aa  x\n");
}

TEST(AlignedTable, AlignsBySpelledOutControlCharacters) {
    EXPECT_EQ(aligned({{"a\nb", "x"}, {"\x1b", "x"}}), "a\\nb  x\n"
                                                       "\\x1b  x\n");
}

TEST(AlignedTable, ThatFitsIsOneBand) {
    EXPECT_EQ(aligned({{"Id", "Start", "Stop"}, {"1", "7:00", "8:00"}}, 15), "Id  Start  Stop\n"
                                                                             "1   7:00   8:00\n");
}

TEST(AlignedTable, ThatIsWiderThanTheLineComesInBandsWithTheFirstColumn) {
    EXPECT_EQ(aligned({{"Id", "Start", "Stop", "On"}, {"1", "7:00", "8:00", "x"}}, 14), "Id  Start\n"
                                                                                        "1   7:00\n"
                                                                                        "\n"
                                                                                        "Id  Stop  On\n"
                                                                                        "1   8:00  x\n");
}

TEST(AlignedTable, CutsACellThatIsLongerThanItsLine) {
    EXPECT_EQ(aligned({{"Id", "Name", "On"}, {"1", std::string(40, 'x'), "1"}}, 20), "Id  Name\n"
                                                                                     "1   xxxxxxxxxxxxx...\n"
                                                                                     "\n"
                                                                                     "Id  On\n"
                                                                                     "1   1\n");
}

TEST(AlignedTable, KeepsToItsLineWhateverTheWidth) {
    const std::vector<TextRow> rows = {{std::string(30, 'i'), "Start", "Stop"},
                                       {"1", std::string(99, 'x'), ""}};
    for (std::size_t lineWidth = 18; lineWidth < 150; ++lineWidth) {
        std::istringstream lines(aligned(rows, lineWidth));
        for (std::string line; std::getline(lines, line);)
            ASSERT_LE(line.size(), lineWidth) << line;
    }
    EXPECT_FALSE(aligned(rows, 1).empty());
}

TEST(AlignedTable, OfNoRowsPrintsNothing) {
    EXPECT_EQ(aligned({}), "");
}

} // namespace
} // namespace tools
