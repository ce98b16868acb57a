#include "probes/stringhelpers.h"

#include <string>

#include <gtest/gtest.h>

namespace {

struct Case {
    std::string text;
    std::string expected;
};

const Case blankCases[] = {
    {"", ""},
    {"a", "a"},
    {"a b", "a b"},
    {" ", " "},
    {"  ", " "},
    {"\t", " "},
    {" \t \t\t ", " "},
    {"a\t\tb   c", "a b c"},
    {"a\tb", "a b"},
    {"a \tb\t c", "a b c"},
    {"   a   ", " a "},
    {std::string(1000, ' ') + "x" + std::string(1001, '\t'), " x "},
    // other white space is none here
    {"a\n\nb\r\rc\v\vd\f\fe", "a\n\nb\r\rc\v\vd\f\fe"},
    {" \n ", " \n "},
    {"\xA0\xA0\xFF  \xFF", "\xA0\xA0\xFF \xFF"},
    {std::string("a\0\0  \0b", 7), std::string("a\0\0 \0b", 6)},
};

TEST(ReplaceDoubleSpaces, LeavesOneBlankOfEveryRunOfBlanksAndTabs) {
    for (const Case& given : blankCases) {
        std::string text = given.text;
        orv::replaceDoubleSpaces(text);
        EXPECT_EQ(text, given.expected) << "for '" << given.text << "'";
    }
}

struct TrimCase {
    std::string text;
    std::string left;
    std::string right;
};

const TrimCase trimCases[] = {
    {"", "", ""},
    {"a", "a", "a"},
    {" ", "", ""},
    {" \t\n\v\f\r", "", ""},
    {" a ", "a ", " a"},
    {" \t\n\v\f\ra b \t\n\v\f\r", "a b \t\n\v\f\r", " \t\n\v\f\ra b"},
    {"a  b", "a  b", "a  b"},
    {"a\r", "a\r", "a"},
    // not white space
    {"\xA0x\xA0", "\xA0x\xA0", "\xA0x\xA0"},
    {"\xFF", "\xFF", "\xFF"},
    {"\x1Fx\x1F", "\x1Fx\x1F", "\x1Fx\x1F"},
    {std::string("\0 \0", 3), std::string("\0 \0", 3), std::string("\0 \0", 3)},
    {std::string(" \0 ", 3), std::string("\0 ", 2), std::string(" \0", 2)},
};

TEST(Trim, TakesWhiteSpaceFromOneEnd) {
    for (const TrimCase& given : trimCases) {
        std::string left = given.text;
        orv::string::ltrim(left);
        EXPECT_EQ(left, given.left) << "for '" << given.text << "'";
        std::string right = given.text;
        orv::string::rtrim(right);
        EXPECT_EQ(right, given.right) << "for '" << given.text << "'";
    }
}

TEST(Trim, EveryByteIsWhiteSpaceOrNot) {
    for (int byte = 0; byte < 256; ++byte) {
        const bool white = byte == ' ' || (byte >= '\t' && byte <= '\r');
        const std::string text(1, static_cast<char>(byte));
        std::string left = text;
        orv::string::ltrim(left);
        EXPECT_EQ(left, white ? "" : text) << byte;
        std::string right = text;
        orv::string::rtrim(right);
        EXPECT_EQ(right, white ? "" : text) << byte;
    }
}

} // namespace
