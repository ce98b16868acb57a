#include "timeplan/timeplantime.h"

#include <climits>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using orv::horad::TimePlanTime;

struct TextCase {
    std::string text;
    int hour;
    int minute;
    int second;
};

const TextCase textCases[] = {
    {"08:30:00", 8, 30, 0},
    {"08:30", 8, 30, 0},
    {"8", 8, 0, 0},
    {"0", 0, 0, 0},
    {"", 0, 0, 0},
    {"00:00:00", 0, 0, 0},
    {"00:00:01", 0, 0, 1},
    {"23:59:59", 23, 59, 59},
    // parts that are missing
    {":", 0, 0, 0},
    {"::", 0, 0, 0},
    {"8:", 8, 0, 0},
    {":30", 0, 30, 0},
    {"8::9", 8, 0, 9},
    {"::9", 0, 0, 9},
    {"8:30:", 8, 30, 0},
    // more than there should be
    {"1:2:3:4", 1, 2, 3},
    {"1:2:3 and more", 1, 2, 3},
    {"1x:2y:3z", 1, 2, 3},
    {"8.5:30", 8, 30, 0},
    {"0x10:1", 0, 1, 0},
    {"000000000000000000000008:30", 8, 30, 0},
    // blanks and signs
    {" 7:5:9", 7, 5, 9},
    {" \t\n\v\f\r7: 5:\t9", 7, 5, 9},
    {"7 :5", 7, 5, 0},
    {"-1:00", -1, 0, 0},
    {"+3:-4:+5", 3, -4, 5},
    {"--1:+-2", 0, 0, 0},
    {"- 1:30", 0, 30, 0},
    // no numbers
    {"ab:cd", 0, 0, 0},
    {"noon", 0, 0, 0},
    // out of the range of a day, and of a number
    {"25:99:99", 25, 99, 99},
    {"24:00:00", 24, 0, 0},
    {"2147483647:-2147483648:0", INT_MAX, INT_MIN, 0},
    {"2147483648:-2147483649:1", INT_MAX, INT_MIN, 1},
    {"99999999999:-99999999999:99999999999999999999999999", INT_MAX, INT_MIN, INT_MAX},
    // a zero byte ends a number as any other character does
    {std::string("08\0009:30:15", 10), 8, 30, 15},
    {std::string("\0008:30", 5), 0, 30, 0},
};

TEST(TimePlanTime, TextIsReadAsNumbersBetweenColons) {
    for (const TextCase& given : textCases) {
        const TimePlanTime time(given.text);
        EXPECT_EQ(time.hour(), given.hour) << given.text;
        EXPECT_EQ(time.minute(), given.minute) << given.text;
        EXPECT_EQ(time.second(), given.second) << given.text;
    }
}

struct NumbersCase {
    int hour;
    int minute;
    int second;
    const char* printed;
};

const NumbersCase numbersCases[] = {
    {9, 5, 0, "9:5:0"},
    {0, 0, 0, "0:0:0"},
    {23, 59, 59, "23:59:59"},
    // no normalising
    {23, 60, 0, "23:60:0"},
    {25, 99, 99, "25:99:99"},
    {-1, -2, -3, "-1:-2:-3"},
    {INT_MAX, INT_MIN, 1, "2147483647:-2147483648:1"},
    // an hour of 24, and nothing else, is the end of the day
    {24, 0, 0, "23:59:59"},
    {24, 30, 10, "23:59:59"},
    {-24, 0, 0, "-24:0:0"},
    {0, 24, 24, "0:24:24"},
};

TEST(TimePlanTime, NumbersAreKeptAndPrintedPlainButHour24IsTheEndOfTheDay) {
    for (const NumbersCase& given : numbersCases) {
        std::ostringstream printed;
        TimePlanTime(given.hour, given.minute, given.second).put(printed);
        EXPECT_EQ(printed.str(), given.printed);
    }
}

TEST(TimePlanTime, TextKeepsItsHour24) {
    EXPECT_GT(TimePlanTime("24:00:00"), TimePlanTime(23, 59, 59));
    EXPECT_NE(TimePlanTime("24:00:00"), TimePlanTime(24, 0, 0));
}

TEST(TimePlanTime, PutReturnsItsStream) {
    std::ostringstream stream;
    EXPECT_EQ(&TimePlanTime(7, 5, 0).put(stream), &stream);
}

TEST(TimePlanTime, IsSetWhereAnyPartIsNotZero) {
    for (const char* unset : {"", "0", "00:00:00", ":", "ab:cd"})
        EXPECT_FALSE(TimePlanTime(unset).isSet()) << unset;
    for (const char* set : {"00:00:01", "00:01:00", "01:00:00", "-1:00", "0:0:-1"})
        EXPECT_TRUE(TimePlanTime(set).isSet()) << set;
}

TEST(TimePlanTime, UnsetTextsAreEqual) {
    EXPECT_EQ(TimePlanTime(""), TimePlanTime("0"));
    EXPECT_EQ(TimePlanTime("0"), TimePlanTime("00:00:00"));
    EXPECT_EQ(TimePlanTime("00:00:00"), TimePlanTime(0, 0, 0));
}

TEST(TimePlanTime, OrderIsByHourThenMinuteThenSecond) {
    const std::vector<std::string> ascending = {
        "-2:59:59", "-1:0:0", "0:-1:59", "0:0:-1", "0:0:0",   "0:0:1",   "0:1:0",    "0:1:1",
        "1:0:0",    "2:0:59", "9:59:59", "10:0:0", "10:0:59", "10:1:-1", "23:59:59", "24:0:0",
    };
    for (std::size_t i = 0; i < ascending.size(); ++i)
        for (std::size_t j = 0; j < ascending.size(); ++j) {
            SCOPED_TRACE(ascending[i] + " and " + ascending[j]);
            const TimePlanTime left(ascending[i]);
            const TimePlanTime right(ascending[j]);
            EXPECT_EQ(left < right, i < j);
            EXPECT_EQ(left <= right, i <= j);
            EXPECT_EQ(left > right, i > j);
            EXPECT_EQ(left >= right, i >= j);
            EXPECT_EQ(left == right, i == j);
            EXPECT_EQ(left != right, i != j);
        }
}

} // namespace
