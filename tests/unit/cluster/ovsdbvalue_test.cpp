#include "store/cluster/ovsdbvalue.h"
#include "velta/celltype.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using store::atomOf;
using store::Column;
using store::columnKindOf;
using store::Json;
using store::valueOf;
using velta::Value;

Value textValue(const std::string& text) {
    Value value(Value::Text);
    value.setText(text);
    return value;
}

Column columnDeclared(const std::string& declared) {
    Column column;
    column.name = "Column";
    column.kind = columnKindOf(declared).value();
    column.type = typeOf(column.kind.kind);
    return column;
}

struct Pair {
    const char* declared;
    Value value;
    Json atom;
};

class SharedCellTest : public testing::TestWithParam<Pair> {};

TEST_P(SharedCellTest, IsTheSameThereAndBack) {
    std::string complaint;
    EXPECT_EQ(atomOf(GetParam().value, complaint), GetParam().atom);
    EXPECT_EQ(valueOf(columnDeclared(GetParam().declared), GetParam().atom, complaint), GetParam().value);
    EXPECT_EQ(complaint, "");
}

const Pair pairs[] = {
    {"SWITCH", velta::numberValue(Value::Switch, 1), 1},
    {"INTEGER", velta::numberValue(Value::Integer, INT32_MIN), INT32_MIN},
    {"INTEGER", velta::numberValue(Value::Integer, INT32_MAX), INT32_MAX},
    {"INTEGER(0, 7)", velta::numberValue(Value::Integer, 7), 7},
    {"COUNTER", velta::numberValue(Value::Counter, UINT32_MAX), UINT32_MAX},
    {"TEXT", textValue(""), ""},
    {"TEXT", textValue("Küche \"1\"\n\x01\xf0\x9f\x98\x80"), "Küche \"1\"\n\x01\xf0\x9f\x98\x80"},
    {"TEXT", textValue(std::string(4096, 'x')), std::string(4096, 'x')},
    {"TIME", textValue("18:30"), "18:30"},
    {"TIME", textValue(""), ""},
};

INSTANTIATE_TEST_SUITE_P(Cells, SharedCellTest, testing::ValuesIn(pairs));

TEST(AtomOfTest, WhatWouldEndTheConnectionIsRefused) {
    const std::pair<Value, const char*> cases[] = {
        {Value(), "no value"},
        {textValue(std::string("a\0b", 3)), "a text with a zero character"},
        {textValue("\xed\xa0\x80"), "a text that is not UTF-8"}, // half of a surrogate pair
        {textValue("\xff"), "a text that is not UTF-8"},
        {textValue(std::string(4097, 'x')), "a text of 4097 bytes, at most 4096 are possible"},
    };
    for (const auto& [value, reason] : cases) {
        std::string complaint;
        EXPECT_FALSE(atomOf(value, complaint));
        EXPECT_EQ(complaint, reason);
    }
}

struct Refused {
    const char* declared;
    const char* atom; // as JSON
    std::string complaint;
};

class RefusedAtomTest : public testing::TestWithParam<Refused> {};

TEST_P(RefusedAtomTest, IsRefusedWithAReason) {
    const Refused& tested = GetParam();
    std::string complaint;
    EXPECT_FALSE(valueOf(columnDeclared(tested.declared), Json::parse(tested.atom), complaint));
    EXPECT_EQ(complaint, tested.complaint);
}

const std::string anInteger = " is not an integer, -2147483648 to 2147483647";
const std::string aText = " is not a text in UTF-8 of at most 4096 bytes";

const Refused refused[] = {
    {"SWITCH", "2", "2 is not a switch, 0 or 1"},
    {"SWITCH", "true", "true is not a switch, 0 or 1"},
    {"INTEGER", "2147483648", "2147483648" + anInteger},
    {"INTEGER", "-2147483649", "-2147483649" + anInteger},
    {"INTEGER", "9223372036854775808", "9223372036854775808" + anInteger},
    {"INTEGER", "18446744073709551615", "18446744073709551615" + anInteger},
    {"INTEGER", "1.5", "1.5" + anInteger},
    {"INTEGER", "1e300", "1e+300" + anInteger},
    {"INTEGER", "null", "null" + anInteger},
    {"INTEGER", R"("1")", R"("1")" + anInteger},
    {"INTEGER", R"(["set",[]])", "a set" + anInteger},
    {"INTEGER", R"(["uuid","550e8400-e29b-41d4-a716-446655440000"])", "a uuid" + anInteger},
    {"INTEGER", "[]", "[]" + anInteger},
    {"INTEGER", "{}", "{}" + anInteger},
    {"INTEGER(0, 7)", "8", "8 is not an integer from 0 to 7"},
    {"COUNTER", "-1", "-1 is not a counter, 0 to 4294967295"},
    {"COUNTER", "4294967296", "4294967296 is not a counter, 0 to 4294967295"},
    {"TEXT", "1", "1" + aText},
    {"TEXT", R"(["map",[["a","b"]]])", "a map" + aText},
    {"TEXT", R"("a\u0000b")", "a text with a zero character"},
    {"TIME", R"("25:00")", "\"25:00\" is not a time of day, HH:MM or HH:MM:SS"},
};

INSTANTIATE_TEST_SUITE_P(Atoms, RefusedAtomTest, testing::ValuesIn(refused));

TEST(ValueOfTest, TextThatIsTooLongIsRefused) {
    std::string complaint;
    EXPECT_FALSE(valueOf(columnDeclared("TEXT"), std::string(4097, 'x'), complaint));
    EXPECT_EQ(complaint, "a text of 4097 bytes, at most 4096 are possible");
}

} // namespace
