#include "orv/utf8.h"

#include <string>

#include <gtest/gtest.h>

namespace {

using orv::utf8::characterSize;
using orv::utf8::isControl;

TEST(Utf8, CharacterHasOneToFourBytes) {
    EXPECT_EQ(characterSize("ab"), 1U);
    EXPECT_EQ(characterSize(std::string_view("\0a", 2)), 1U);
    EXPECT_EQ(characterSize("\xC2\x80x"), 2U);
    EXPECT_EQ(characterSize("\xE0\xA0\x80x"), 3U);
    EXPECT_EQ(characterSize("\xED\x9F\xBFx"), 3U);
    EXPECT_EQ(characterSize("\xF0\x90\x80\x80x"), 4U);
    EXPECT_EQ(characterSize("\xF4\x8F\xBF\xBFx"), 4U);
}

TEST(Utf8, BytesThatBeginNoCharacterHaveNoSize) {
    for (const char* bytes :
         {"", "\x80", "\xBF", "\xC0\x80", "\xC1\xBF", "\xC2", "\xC2x", "\xC2\xC2", "\xE0\x9F\xBF", "\xE2\x82",
          "\xED\xA0\x80", "\xF0\x8F\xBF\xBF", "\xF0\x90\x80", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF"})
        EXPECT_EQ(characterSize(bytes), 0U) << testing::PrintToString(bytes);
}

TEST(Utf8, ControlCharactersAreOfBothKinds) {
    for (const char* character : {"\x01", "\n", "\x1F", "\x7F", "\xC2\x80", "\xC2\x9B", "\xC2\x9F"})
        EXPECT_TRUE(isControl(character)) << testing::PrintToString(character);
    EXPECT_TRUE(isControl(std::string_view("\0", 1)));
    for (const char* character : {" ", "~", "\xC2\xA0", "\xC3\x9B", "\xE2\x82\x9B", "\xF0\x9F\x8C\x99"})
        EXPECT_FALSE(isControl(character)) << testing::PrintToString(character);
}

} // namespace
