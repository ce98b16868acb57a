#include "tools/text.h"

#include <string>

#include <gtest/gtest.h>

namespace tools {
namespace {

struct PrintableCase {
    const char* name;
    std::string text;
    std::string shown;
};

class Printable : public ::testing::TestWithParam<PrintableCase> {};

TEST_P(Printable, SpellsOutWhatCouldDriveATerminal) {
    EXPECT_EQ(printable(GetParam().text), GetParam().shown);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, Printable,
    ::testing::Values(
        PrintableCase{"Plain", "school nights", "school nights"},
        PrintableCase{"Umlaut",
                      "n\xc3\xa4"
                      "chtlich",
                      "n\xc3\xa4"
                      "chtlich"},
        PrintableCase{"NewLine", "a\nb", "a\\nb"}, PrintableCase{"TabAndReturn", "\t\r", "\\t\\r"},
        PrintableCase{"Escape", "\x1b[2J", "\\x1b[2J"}, PrintableCase{"Nul", std::string(1, '\0'), "\\x00"},
        PrintableCase{"Delete", "\x7f", "\\x7f"}, PrintableCase{"Backslash", "a\\nb", "a\\\\nb"},
        PrintableCase{"ControlOfTwoBytes", "\xc2\x9b", "\\u009b"},
        PrintableCase{"DirectionMark", "\xe2\x80\xae", "\\u202e"},
        PrintableCase{"ContinuationAlone", "\x9b", "\\x9b"}, PrintableCase{"CutCharacter", "\xc3", "\\xc3"},
        PrintableCase{"Overlong", "\xc0\xaf", "\\xc0\\xaf"},
        PrintableCase{"Surrogate", "\xed\xa0\x80", "\\xed\\xa0\\x80"},
        PrintableCase{"BeyondTheLast", "\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},
        PrintableCase{"FourBytes", "\xf0\x9f\x93\xb6", "\xf0\x9f\x93\xb6"}),
    [](const auto& suite) { return suite.param.name; });

TEST(Width, CountsCharactersNotBytes) {
    EXPECT_EQ(width("n\xc3\xa4"
                    "chtlich"),
              9U);
}

TEST(Word, NeedsQuotesOnlyWhereItWouldNotReadAsOne) {
    EXPECT_EQ(asWord("18:30"), "18:30");
    EXPECT_EQ(asWord(""), "\"\"");
    EXPECT_EQ(asWord("school nights"), "\"school nights\"");
    EXPECT_EQ(asWord("say \"no\""), "\"say \\\"no\\\"\"");
}

TEST(Cut, KeepsWhatFitsAndMarksTheRest) {
    EXPECT_EQ(cut("short", 5), "short");
    EXPECT_EQ(cut("longer", 5), "lo...");
    EXPECT_EQ(cut("\xc3\xa4\xc3\xb6\xc3\xbc\xc3\xa4\xc3\xb6", 4), "\xc3\xa4...");
    EXPECT_EQ(cut("longer", 3), "...");
}

TEST(Json, HoldsNoDeleteAndNoC1ControlCharacter) {
    EXPECT_EQ(withoutControls("\"plain\""), "\"plain\"");
    EXPECT_EQ(withoutControls("\"a\x7f\xc2\x80\xc2\x9f\xc2\xa0\xc3\x9b\""),
              "\"a\\u007f\\u0080\\u009f\xc2\xa0\xc3\x9b\"");
}

TEST(Quotes, CutALongText) {
    EXPECT_EQ(inQuotes("short"), "\"short\"");
    EXPECT_EQ(inQuotes(std::string(1000, 'x')), "\"" + std::string(80, 'x') + "...\"");
}

} // namespace
} // namespace tools
