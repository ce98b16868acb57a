#include "velta/valuelist.h"

#include <string>

#include <gtest/gtest.h>

namespace velta {
namespace {

Value textValue(const std::string& text) {
    Value value;
    value.setText(text);
    return value;
}

TEST(ValueList, MissingColumnGivesAValueOfTypeNone) {
    ValueList values;
    values.add("Name", textValue("night"));

    EXPECT_EQ(values.getValue("Activate").type(), Value::None);
    EXPECT_FALSE(values.hasValue("Activate"));
}

TEST(ValueList, ColumnNamesAreCaseSensitive) {
    ValueList values;
    values.add("Name", textValue("night"));

    EXPECT_TRUE(values.hasValue("Name"));
    EXPECT_FALSE(values.hasValue("name"));
}

TEST(ValueList, FirstOfTwoCellsWithOneNameCounts) {
    ValueList values;
    values.add("Name", textValue("first"));
    values.add("Name", textValue("second"));

    EXPECT_EQ(values.getValue("Name").getText(), "first");
}

TEST(ValueList, IteratesInTheOrderOfAdding) {
    ValueList values;
    for (const char* name : {"Name", "Id", "Activate"})
        values.add(name, Value());
    std::string order;

    for (const ValueList::Cell& cell : values)
        order += cell.first + ' ';

    EXPECT_EQ(order, "Name Id Activate ");
}

TEST(ValueList, ClearLeavesNothing) {
    ValueList values;
    values.add("Name", textValue("night"));

    values.clear();

    EXPECT_TRUE(values.empty());
    EXPECT_EQ(values.size(), 0U);
    EXPECT_FALSE(values.hasValue("Name"));
}

TEST(ValueList, EqualityTakesNamesContentAndOrder) {
    ValueList values;
    values.add("Id", textValue("1"));
    values.add("Name", textValue("night"));
    ValueList turned;
    turned.add("Name", textValue("night"));
    turned.add("Id", textValue("1"));

    EXPECT_TRUE(values == ValueList(values));
    EXPECT_TRUE(values != turned);
}

} // namespace
} // namespace velta
