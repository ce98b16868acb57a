#include "velta/protocol/wire.h"

#include <string>

#include <gtest/gtest.h>

namespace velta::protocol {
namespace {

using namespace std::literals;

Value integerValue(unsigned type, int number) {
    Value value(type);
    value.setInteger(number);
    return value;
}

Value textValue(const std::string& text) {
    Value value;
    value.setText(text);
    return value;
}

TEST(Writer, NumbersStandInNetworkOrder) {
    std::string bytes;
    Writer writer(bytes);

    writer.number8(0xAB);
    writer.number32(0x01020304);
    writer.number32(0xFFFFFFFE);

    EXPECT_EQ(bytes, "\xAB\x01\x02\x03\x04\xFF\xFF\xFF\xFE"s);
}

TEST(Writer, TextStandsBehindItsLength) {
    std::string bytes;

    Writer(bytes).text("a\0b"s);

    EXPECT_EQ(bytes, "\0\0\0\3a\0b"s);
}

TEST(Writer, ValueStandsBehindItsTypeCode) {
    struct Case {
        Value value;
        std::string bytes;
    };
    const Case cases[] = {
        {Value(), "\0"s},
        {integerValue(Value::Switch, 1), "\1\0\0\0\1"s},
        {integerValue(Value::Integer, -2), "\2\xFF\xFF\xFF\xFE"s},
        {integerValue(Value::Counter, 258), "\3\0\0\1\2"s},
        {textValue("on"), "\4\0\0\0\2on"s},
    };
    for (const Case& entry : cases) {
        std::string bytes;

        Writer(bytes).value(entry.value);

        EXPECT_EQ(bytes, entry.bytes);
    }
}

TEST(Writer, ListsStandBehindTheirCount) {
    ValueList values;
    values.add("Id", integerValue(Value::Integer, 7));
    std::string bytes;
    Writer writer(bytes);

    writer.values(values);
    writer.names({"A", ""});

    EXPECT_EQ(bytes, "\0\0\0\1\0\0\0\2Id\2\0\0\0\7"s + "\0\0\0\2\0\0\0\1A\0\0\0\0"s);
}

TEST(Reader, GivesBackWhatTheWriterWrote) {
    ValueList values;
    values.add("Nothing", Value());
    values.add("Activate", integerValue(Value::Switch, 1));
    values.add("Id", integerValue(Value::Integer, -3));
    values.add("Runs", integerValue(Value::Counter, -1));
    values.add("Name", textValue("n\0t"s));
    std::string bytes;
    Writer writer(bytes);
    writer.values(values);
    writer.names({"Wlan", "WlanTimePlans"});

    Reader reader(bytes);
    ValueList readValues;
    reader.values(readValues);
    NameList readNames;
    reader.names(readNames);

    EXPECT_TRUE(reader.complete());
    EXPECT_TRUE(readValues == values);
    EXPECT_EQ(readNames, (NameList{"Wlan", "WlanTimePlans"}));
}

TEST(Reader, PassesOverValuesOfEveryType) {
    std::string bytes;
    Writer writer(bytes);
    for (const Value& value : {Value(), integerValue(Value::Switch, 1), textValue("night")})
        writer.value(value);

    Reader reader(bytes);
    for (int i = 0; i < 3; ++i)
        reader.skipValue();

    EXPECT_TRUE(reader.complete());
}

TEST(Reader, IsNotCompleteWithBytesLeft) {
    Reader reader("\0\1"sv);

    (void)reader.number8();

    EXPECT_TRUE(reader.ok());
    EXPECT_FALSE(reader.complete());
}

TEST(Reader, FailsForGoodOnceSomethingIsMissing) {
    Reader reader("\0\0\1"sv);

    EXPECT_EQ(reader.number32(), 0U);

    EXPECT_FALSE(reader.ok());
    EXPECT_EQ(reader.number8(), 0);
    EXPECT_EQ(reader.text(), "");
    EXPECT_EQ(reader.rest(), "");
}

TEST(Reader, RefusesATextLongerThanTheMessage) {
    for (const std::string& bytes : {"\0\0\0\3ab"s, "\xFF\xFF\xFF\xFF"s, "\x80\0\0\0ab"s}) {
        Reader reader(bytes);

        EXPECT_EQ(reader.text(), "");

        EXPECT_FALSE(reader.ok());
    }
}

TEST(Reader, RefusesACountThatCantFitBeforeItMakesRoomForIt) {
    const std::string bytes = "\xFF\xFF\xFF\xFF"s + std::string(100, '\0');
    Reader forNames(bytes);
    Reader forValues(bytes);
    NameList names;
    ValueList values;

    forNames.names(names);
    forValues.values(values);

    EXPECT_FALSE(forNames.ok());
    EXPECT_FALSE(forValues.ok());
    EXPECT_EQ(names.capacity(), 0U);
    EXPECT_TRUE(values.empty());
}

TEST(Reader, RefusesAnUnknownTypeCode) {
    for (const std::string& bytes : {"\5\0\0\0\0"s, "\xFF\0\0\0\0"s}) {
        Reader reading(bytes);
        Reader skipping(bytes);

        (void)reading.value();
        skipping.skipValue();

        EXPECT_FALSE(reading.ok());
        EXPECT_FALSE(skipping.ok());
    }
}

} // namespace
} // namespace velta::protocol
