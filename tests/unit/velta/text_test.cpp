#include "velta/text.h"

#include <string>

#include <gtest/gtest.h>

namespace velta {
namespace {

TEST(WholeNumber, IsReadFromDigitsAlone) {
    EXPECT_EQ(wholeNumber("0"), 0);
    EXPECT_EQ(wholeNumber("-12"), -12);
    EXPECT_EQ(wholeNumber("9223372036854775807"), 9223372036854775807);
}

TEST(WholeNumber, IsNotReadFromAnythingElse) {
    for (const char* text : {"", "-", "+1", " 1", "1 ", "1.5", "0x10", "1e3", "one", "9223372036854775808"})
        EXPECT_EQ(wholeNumber(text), std::nullopt) << text;
}

struct CharacterCase {
    const char* name;
    std::string text;
    char32_t code;
    std::size_t bytes;
};

class Characters : public ::testing::TestWithParam<CharacterCase> {};

TEST_P(Characters, AreReadFromTheFrontOfAText) {
    const std::optional<Character> first = firstCharacter(GetParam().text + "rest");

    ASSERT_TRUE(first);
    EXPECT_EQ(first->code, GetParam().code);
    EXPECT_EQ(first->bytes, GetParam().bytes);
    EXPECT_TRUE(isUtf8("before" + GetParam().text + "behind"));
}

INSTANTIATE_TEST_SUITE_P(Texts, Characters,
                         ::testing::Values(CharacterCase{"Zero", std::string(1, '\0'), 0, 1},
                                           CharacterCase{"Letter", "a", U'a', 1},
                                           CharacterCase{"LastOfOneByte", "\x7f", 0x7f, 1},
                                           CharacterCase{"FirstOfTwoBytes", "\xc2\x80", 0x80, 2},
                                           CharacterCase{"LastOfTwoBytes", "\xdf\xbf", 0x7ff, 2},
                                           CharacterCase{"FirstOfThreeBytes", "\xe0\xa0\x80", 0x800, 3},
                                           CharacterCase{"Euro", "\xe2\x82\xac", 0x20ac, 3},
                                           CharacterCase{"BeforeTheSurrogates", "\xed\x9f\xbf", 0xd7ff, 3},
                                           CharacterCase{"BehindTheSurrogates", "\xee\x80\x80", 0xe000, 3},
                                           CharacterCase{"FirstOfFourBytes", "\xf0\x90\x80\x80", 0x10000, 4},
                                           CharacterCase{"LastOfAll", "\xf4\x8f\xbf\xbf", 0x10ffff, 4}),
                         [](const auto& suite) { return suite.param.name; });

struct BytesCase {
    const char* name;
    std::string bytes;
};

class OtherBytes : public ::testing::TestWithParam<BytesCase> {};

TEST_P(OtherBytes, AreNoUtf8) {
    EXPECT_FALSE(firstCharacter(GetParam().bytes));
    EXPECT_FALSE(isUtf8("before" + GetParam().bytes));
    EXPECT_FALSE(isUtf8(GetParam().bytes + "behind"));
}

INSTANTIATE_TEST_SUITE_P(
    Texts, OtherBytes,
    ::testing::Values(BytesCase{"ContinuationAlone", "\x9b"}, BytesCase{"CutAfterOneByte", "\xc3"},
                      BytesCase{"CutAfterTwoBytes", "\xe2\x82"},
                      BytesCase{"CutAfterThreeBytes", "\xf0\x9f\x93"}, BytesCase{"Latin1", "\xe9"},
                      BytesCase{"LetterInsteadOfContinuation", "\xe2\x41\xac"},
                      BytesCase{"OverlongSlash", "\xc0\xaf"}, BytesCase{"OverlongZero", "\xc0\x80"},
                      BytesCase{"OverlongThreeBytes", "\xe0\x9f\xbf"},
                      BytesCase{"OverlongFourBytes", "\xf0\x8f\xbf\xbf"},
                      BytesCase{"FirstSurrogate", "\xed\xa0\x80"}, BytesCase{"LastSurrogate", "\xed\xbf\xbf"},
                      BytesCase{"BeyondTheLast", "\xf4\x90\x80\x80"},
                      BytesCase{"LeadOfFiveBytes", "\xf8\x88\x80\x80\x80"}, BytesCase{"NoLead", "\xff"}),
    [](const auto& suite) { return suite.param.name; });

TEST(Utf8, MayBeEmpty) {
    EXPECT_TRUE(isUtf8(""));
    EXPECT_FALSE(firstCharacter(""));
}

} // namespace
TEST(TimeOfDay, IsEmptyOrHasTwoDigitsBehindEachColon) {
    for (const char* text :
         {"", "8:30", "08:30", "0:00", "00:00", "23:59", "23:59:59", "8:30:00", "24:00", "24:00:00"})
        EXPECT_TRUE(velta::isTimeOfDay(text)) << text;
    for (const char* text :
         {"2230",  "0330",   "8",     "8:",       ":30",     "8:3",        "8:60",  "24:01", "24:00:01",
          "25:00", "008:30", "8:30:", "8:30:0",   "8:30:60", "8:30:00:00", " 8:30", "8:30 ", "-1:30",
          "+8:30", "8h30",   "a:30",  "8:30:00x", "24:00:0", "99:99",      "8.30"})
        EXPECT_FALSE(velta::isTimeOfDay(text)) << text;
}

TEST(OnOneLine, ControlsBecomeBlanksAndOtherBytesQuestionMarks) {
    EXPECT_EQ(velta::onOneLine("a\nb\x1b[2J\x7f"), "a b [2J ");
    EXPECT_EQ(velta::onOneLine("\xc2\x9b"
                               "2J \xc3\xbc"),
              " 2J \xc3\xbc");
    EXPECT_EQ(velta::onOneLine("\x9b\xff"), "??");
    EXPECT_EQ(velta::onOneLine(""), "");
}

} // namespace velta
