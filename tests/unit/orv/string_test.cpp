#include "orv/string.h"

#include <limits>

#include <gtest/gtest.h>

namespace orv::string {
namespace {

using namespace std::string_literals;

constexpr int lowest = std::numeric_limits<int>::min();
constexpr int highest = std::numeric_limits<int>::max();

TEST(String, ToIntegerReadsTheLeadingNumber) {
    struct Case {
        std::string text;
        int number;
    };
    const Case cases[] = {
        {"", 0},      {"0", 0},      {"42", 42},   {"-42", -42},   {"+42", 42},   {" \t\n\v\f\r7", 7},
        {"0012", 12}, {"12:30", 12}, {"12.9", 12}, {"0x10", 0},    {"on", 0},     {"-", 0},
        {"+-5", 0},   {"- 5", 0},    {"   ", 0},   {"1\0002"s, 1}, {"\0001"s, 0},
    };
    for (const Case& entry : cases)
        EXPECT_EQ(toInteger(entry.text), entry.number) << ::testing::PrintToString(entry.text);
}

TEST(String, ToIntegerHoldsWithin32Bits) {
    struct Case {
        const char* text;
        int number;
    };
    const Case cases[] = {
        {"2147483647", highest},
        {"2147483648", highest},
        {"4294967295", highest},
        {"99999999999999999999999999999999", highest},
        {"-2147483648", lowest},
        {"-2147483649", lowest},
        {"-99999999999999999999999999999999", lowest},
    };
    for (const Case& entry : cases)
        EXPECT_EQ(toInteger(entry.text), entry.number) << entry.text;
}

TEST(String, ListHasThePartsBetweenTheSeparators) {
    struct Case {
        std::string text;
        std::list<std::string> parts;
    };
    const Case cases[] = {
        {"", {}},
        {"a", {"a"}},
        {"a b c", {"a", "b", "c"}},
        {" ", {"", ""}},
        {"a  b", {"a", "", "b"}},
        {" a ", {"", "a", ""}},
        {"a:b", {"a:b"}},
    };
    for (const Case& entry : cases) {
        std::list<std::string> parts;

        SeparatedStringtoList(entry.text, parts, ' ');

        EXPECT_EQ(parts, entry.parts) << "of \"" << entry.text << '"';
    }
}

TEST(String, ListKeepsWhatItHeld) {
    std::list<std::string> parts = {"first"};

    SeparatedStringtoList("second,third", parts, ',');

    EXPECT_EQ(parts, (std::list<std::string>{"first", "second", "third"}));
}

TEST(String, MapHasThePairs) {
    struct Case {
        std::string text;
        std::map<std::string, std::string> pairs;
    };
    const Case cases[] = {
        {"", {}},
        {"1:a 2:b", {{"1", "a"}, {"2", "b"}}},
        {"2:1", {{"2", "1"}}},
        {"1", {{"1", ""}}},
        {"1:", {{"1", ""}}},
        {":a", {{"", "a"}}},
        {"1:a:b", {{"1", "a:b"}}},
        {"  1:a   2:b ", {{"1", "a"}, {"2", "b"}}},
        {"1:a 1:b", {{"1", "b"}}},
    };
    for (const Case& entry : cases) {
        std::map<std::string, std::string> pairs;

        SeparatedStringtoMap(entry.text, pairs, ':', ' ');

        EXPECT_EQ(pairs, entry.pairs) << "of \"" << entry.text << '"';
    }
}

TEST(String, MapKeepsWhatItHeld) {
    std::map<std::string, std::string> pairs = {{"0", "z"}, {"1", "old"}};

    SeparatedStringtoMap("1=new;2=b", pairs, '=', ';');

    EXPECT_EQ(pairs, (std::map<std::string, std::string>{{"0", "z"}, {"1", "new"}, {"2", "b"}}));
}

} // namespace
} // namespace orv::string
