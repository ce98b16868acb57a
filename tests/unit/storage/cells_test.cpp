#include "store/storage/cells.h"
#include "unit/storage/testtables.h"

#include <gtest/gtest.h>

namespace {

using velta::Value;

struct Case {
    const char* name;
    Value::TypeCode type;
    Value value;
    bool acceptable;
};

class AcceptableTest : public testing::TestWithParam<Case> {};

TEST_P(AcceptableTest, FollowsTheColumnsType) {
    EXPECT_EQ(store::acceptable(GetParam().type, GetParam().value), GetParam().acceptable);
}

const Case cases[] = {
    {"SwitchOff", Value::Switch, switchValue(0), true},
    {"SwitchOn", Value::Switch, switchValue(1), true},
    {"SwitchTwo", Value::Switch, switchValue(2), false},
    {"SwitchNegative", Value::Switch, switchValue(-1), false},
    {"IntegerForSwitch", Value::Switch, integerValue(1), false},
    {"IntegerLeast", Value::Integer, integerValue(INT32_MIN), true},
    {"CounterForInteger", Value::Integer, counterValue(1), false},
    {"CounterMost", Value::Counter, counterValue(-1), true},
    {"NoneForInteger", Value::Integer, Value(), false},
    {"TextForInteger", Value::Integer, textValue("1"), false},
    {"TextEmpty", Value::Text, textValue(""), true},
    {"TextLongest", Value::Text, textValue(std::string(4096, 'a')), true},
    {"TextTooLong", Value::Text, textValue(std::string(4097, 'a')), false},
    {"TextZero", Value::Text, textValue(std::string("a\0b", 3)), false},
    {"Utf8TwoBytes", Value::Text, textValue("\xc3\xa4"), true},
    {"Utf8ThreeBytes", Value::Text, textValue("\xe2\x82\xac"), true},
    {"Utf8FourBytes", Value::Text, textValue("\xf0\x9f\x98\x80"), true},
    {"Utf8Cut", Value::Text, textValue("\xe2\x82"), false},
    {"Utf8Overlong", Value::Text, textValue("\xc0\xaf"), false},
    {"Utf8OverlongThree", Value::Text, textValue("\xe0\x80\xaf"), false},
    {"Utf8Surrogate", Value::Text, textValue("\xed\xa0\x80"), false},
    {"Utf8TooHigh", Value::Text, textValue("\xf4\x90\x80\x80"), false},
    {"Utf8Stray", Value::Text, textValue("\x80"), false},
};

INSTANTIATE_TEST_SUITE_P(Cells, AcceptableTest, testing::ValuesIn(cases),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(Shown, IsShortAndPrintable) {
    EXPECT_EQ(store::shown("Wlan\n\xc3"), "Wlan??");
    EXPECT_EQ(store::shown(std::string(1000, 'a')).size(), 67U);
}

} // namespace
