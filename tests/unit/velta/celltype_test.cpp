#include "velta/celltype.h"

#include <gtest/gtest.h>

namespace velta {
namespace {

struct RangeCase {
    const char* name;
    unsigned type;
    std::int64_t least;
    std::int64_t most;
    const char* description;
};

class NumberTypes : public ::testing::TestWithParam<RangeCase> {};

TEST_P(NumberTypes, HaveTheirRange) {
    EXPECT_TRUE(isNumber(GetParam().type));
    EXPECT_EQ(rangeOf(GetParam().type).least, GetParam().least);
    EXPECT_EQ(rangeOf(GetParam().type).most, GetParam().most);
}

TEST_P(NumberTypes, AreDescribedForAPerson) {
    EXPECT_EQ(descriptionOf(GetParam().type), GetParam().description);
}

TEST_P(NumberTypes, KeepTheNumbersAtTheEndsOfTheirRange) {
    for (const std::int64_t number : {GetParam().least, GetParam().most}) {
        const Value value = numberValue(GetParam().type, number);

        EXPECT_EQ(value.type(), GetParam().type);
        EXPECT_EQ(numberIn(value), number);
        EXPECT_EQ(value.getText(), std::to_string(number));
    }
}

INSTANTIATE_TEST_SUITE_P(Types, NumberTypes,
                         ::testing::Values(RangeCase{"Switch", Value::Switch, 0, 1, "a switch, 0 or 1"},
                                           RangeCase{"Integer", Value::Integer, -2147483648LL, 2147483647,
                                                     "an integer, -2147483648 to 2147483647"},
                                           RangeCase{"Counter", Value::Counter, 0, 4294967295,
                                                     "a counter, 0 to 4294967295"}),
                         [](const auto& suite) { return suite.param.name; });

TEST(OtherTypes, AreNoNumbers) {
    for (const unsigned type : {unsigned{Value::None}, unsigned{Value::Text}, 5U, 4294967295U}) {
        EXPECT_FALSE(isNumber(type)) << type;
        EXPECT_EQ(descriptionOf(type), "no number") << type;
    }
}

} // namespace
} // namespace velta
