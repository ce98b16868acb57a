#include "velta/value.h"

#include <limits>

#include <gtest/gtest.h>

namespace velta {
namespace {

TEST(Value, NoneReadsAsZeroAndAsEmptyText) {
    const Value value;

    EXPECT_EQ(value.type(), Value::None);
    EXPECT_EQ(value.getInteger(), 0);
    EXPECT_EQ(value.getText(), "");
}

TEST(Value, IntegerKeepsTheTypesThatHoldOne) {
    for (const unsigned type : {Value::Switch, Value::Integer, Value::Counter}) {
        Value value(type);

        value.setInteger(1);

        EXPECT_EQ(value.type(), type);
    }
}

TEST(Value, IntegerTurnsAnyOtherTypeIntoAnInteger) {
    for (const unsigned type : {unsigned{Value::None}, unsigned{Value::Text}, 9U}) {
        Value value(type);

        value.setInteger(-5);

        EXPECT_EQ(value.type(), Value::Integer);
        EXPECT_EQ(value.getText(), "-5");
    }
}

TEST(Value, TextTurnsAnyTypeIntoText) {
    Value value(Value::Switch);
    value.setInteger(1);

    value.setText("on");

    EXPECT_EQ(value.type(), Value::Text);
    EXPECT_EQ(value.getText(), "on");
}

TEST(Value, TextReadsAsItsLeadingNumber) {
    struct Case {
        const char* text;
        int number;
    };
    for (const Case& entry : {Case{"42", 42}, Case{" -7 days", -7}, Case{"", 0}, Case{"on", 0},
                              Case{"99999999999", std::numeric_limits<int>::max()}}) {
        Value value;

        value.setText(entry.text);

        EXPECT_EQ(value.getInteger(), entry.number) << entry.text;
    }
}

TEST(Value, CounterPrintsItsBitsUnsigned) {
    Value value(Value::Counter);

    value.setInteger(-1);

    EXPECT_EQ(value.getText(), "4294967295");
}

TEST(Value, EqualityTakesTypeAndContent) {
    Value one(Value::Integer);
    one.setInteger(1);
    Value two(Value::Integer);
    two.setInteger(2);
    Value switchOn(Value::Switch);
    switchOn.setInteger(1);
    Value text;
    text.setText("1");

    EXPECT_TRUE(one == Value(one));
    EXPECT_TRUE(one != two);
    EXPECT_TRUE(one != switchOn);
    EXPECT_TRUE(one != text);
}

} // namespace
} // namespace velta
