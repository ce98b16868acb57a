#include "velta/protocol/frame.h"
#include "velta/protocol/message.h"
#include "velta/protocol/wire.h"

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace velta::protocol {
namespace {

using namespace std::string_literals;

Value integerValue(int number) {
    Value value(Value::Integer);
    value.setInteger(number);
    return value;
}

ValueList someValues() {
    Value name;
    name.setText("night");
    ValueList values;
    values.add("Id", integerValue(7));
    values.add("Name", name);
    return values;
}

const std::string& someCells() {
    static const std::string cells = [] {
        std::string bytes;
        Writer writer(bytes);
        for (const ValueList::Cell& cell : someValues())
            writer.value(cell.second);
        return bytes;
    }();
    return cells;
}

Request request(RequestKind kind) {
    Request made;
    made.kind = kind;
    made.sequence = 0x01020304;
    return made;
}

// One of each kind, with all that it carries.
std::vector<Request> everyRequest() {
    std::vector<Request> all;
    for (int kind = 1; kind <= 16; ++kind)
        all.push_back(request(static_cast<RequestKind>(kind)));
    for (const RequestKind kind :
         {RequestKind::Columns, RequestKind::ReadTable, RequestKind::ReadRow, RequestKind::ReadKey,
          RequestKind::WriteSingle, RequestKind::Update, RequestKind::Insert, RequestKind::Remove,
          RequestKind::Describe, RequestKind::SharedColumns})
        all[static_cast<std::size_t>(kind) - 1].table = "Wlan";
    for (const RequestKind kind : {RequestKind::ReadKey, RequestKind::Update, RequestKind::Remove})
        all[static_cast<std::size_t>(kind) - 1].keyColumn = "Id";
    for (const RequestKind kind :
         {RequestKind::Hello, RequestKind::ReadKey, RequestKind::Update, RequestKind::Remove})
        all[static_cast<std::size_t>(kind) - 1].key = "12";
    for (const RequestKind kind : {RequestKind::Hello, RequestKind::ReadRow, RequestKind::Subscribe,
                                   RequestKind::Begin, RequestKind::WriteSingle})
        all[static_cast<std::size_t>(kind) - 1].number = 500;
    for (const RequestKind kind : {RequestKind::WriteSingle, RequestKind::Update, RequestKind::Insert})
        all[static_cast<std::size_t>(kind) - 1].values = someValues();
    all[static_cast<std::size_t>(RequestKind::Subscribe) - 1].names = {"Wlan", "WlanTimePlans"};
    return all;
}

std::vector<ColumnDescription> someDescriptions() {
    Value day;
    day.setText("06:00");
    return {
        {"Id", Value::Integer, "INTEGER", integerValue(1), integerValue(7), Value()},
        {"Start", Value::Text, "TIME", Value(), Value(), day},
        {"Comment", Value::Text, "TEXT", Value(), Value(), Value()},
    };
}

Reply reply(ReplyKind kind) {
    Reply made;
    made.kind = kind;
    made.sequence = 0x01020304;
    return made;
}

std::vector<Reply> everyReply() {
    Reply done = reply(ReplyKind::Done);
    done.number = 3;
    Reply failed = reply(ReplyKind::Failed);
    failed.result = EResultCode(code::unknownTable, "Moon");
    Reply tables = reply(ReplyKind::Tables);
    tables.tables = {{"Wlan", true}, {"WlanTimePlans", false}};
    Reply columns = reply(ReplyKind::Columns);
    columns.columns = {{"Id", Value::Integer}, {"Name", Value::Text}};
    Reply rows = reply(ReplyKind::Rows);
    rows.rows = {true, 5, 1, {"Id", "Name"}, someCells()};
    Reply notice = reply(ReplyKind::Notice);
    notice.names = {"Wlan"};
    Reply description = reply(ReplyKind::Description);
    description.descriptions = someDescriptions();
    return {done, failed, tables, columns, rows, notice, description};
}

bool same(const Request& a, const Request& b) {
    return a.kind == b.kind && a.sequence == b.sequence && a.table == b.table && a.keyColumn == b.keyColumn &&
           a.key == b.key && a.number == b.number && a.names == b.names && a.values == b.values;
}

bool same(const RowsPiece& a, const RowsPiece& b) {
    return a.last == b.last && a.totalRows == b.totalRows && a.rows == b.rows && a.columns == b.columns &&
           a.cells == b.cells;
}

bool same(const std::vector<TableInfo>& a, const std::vector<TableInfo>& b) {
    if (a.size() != b.size())
        return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (a[i].name != b[i].name || a[i].singleRow != b[i].singleRow)
            return false;
    return true;
}

bool same(const std::vector<ColumnInfo>& a, const std::vector<ColumnInfo>& b) {
    if (a.size() != b.size())
        return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (a[i].name != b[i].name || a[i].type != b[i].type)
            return false;
    return true;
}

bool same(const std::vector<ColumnDescription>& a, const std::vector<ColumnDescription>& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](const ColumnDescription& one, const ColumnDescription& other) {
                          return one.name == other.name && one.type == other.type && one.kind == other.kind &&
                                 one.least == other.least && one.most == other.most &&
                                 one.defaultValue == other.defaultValue;
                      });
}

bool same(const Reply& a, const Reply& b) {
    return a.kind == b.kind && a.sequence == b.sequence && a.number == b.number &&
           a.result.code() == b.result.code() && a.result.detail() == b.result.detail() &&
           same(a.tables, b.tables) && same(a.columns, b.columns) && same(a.descriptions, b.descriptions) &&
           same(a.rows, b.rows) && a.names == b.names;
}

template <class Message>
std::string encoded(const Message& message) {
    std::string bytes;
    encode(message, bytes);
    return bytes.substr(frameHeader);
}

template <class Message>
void expectRoundTrip(const Message& message) {
    const std::string bytes = encoded(message);
    Message read;
    EXPECT_TRUE(decode(bytes, read));
    EXPECT_TRUE(same(read, message)) << "kind " << static_cast<int>(message.kind);
}

template <class Message>
void expectRefusedWhenCut(const Message& message) {
    const std::string bytes = encoded(message);
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        // A buffer of just that size, so that a read behind its end is found.
        const std::vector<char> cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
        Message read;
        EXPECT_FALSE(decode(std::string_view(cut.data(), cut.size()), read))
            << "kind " << static_cast<int>(message.kind) << ", " << size << " bytes of " << bytes.size();
    }
}

template <class Message>
void expectRefused(const std::string& bytes) {
    Message read;
    EXPECT_FALSE(decode(bytes, read)) << ::testing::PrintToString(bytes);
}

TEST(Message, EveryRequestComesBackAsItWas) {
    for (const Request& message : everyRequest())
        expectRoundTrip(message);
}

TEST(Message, EveryReplyComesBackAsItWas) {
    for (const Reply& message : everyReply())
        expectRoundTrip(message);
}

TEST(Message, GreetingOnTheWire) {
    Request hello = request(RequestKind::Hello);
    hello.key = "horad";
    hello.number = version;
    std::string bytes;

    encode(hello, bytes);

    EXPECT_EQ(bytes, "\0\0\0\x16\1\1\2\3\4HRCF\0\0\0\5horad\0\0\0\1"s);
}

TEST(Message, UpdateOnTheWire) {
    Request update = request(RequestKind::Update);
    update.table = "Wlan";
    update.keyColumn = "Id";
    update.key = "9";
    update.values.add("On", integerValue(-2));

    EXPECT_EQ(encoded(update),
              "\x0C\1\2\3\4\0\0\0\4Wlan\0\0\0\2Id\0\0\0\0019"s + "\0\0\0\1\0\0\0\2On\2\xFF\xFF\xFF\xFE"s);
}

TEST(Message, RowsOnTheWire) {
    Reply rows = reply(ReplyKind::Rows);
    const std::string cells = "\2\0\0\0\7"s;
    rows.rows = {true, 258, 1, {"Id"}, cells};

    EXPECT_EQ(encoded(rows), "\x84\1\2\3\4\1\0\0\1\2\0\0\0\1\0\0\0\1\0\0\0\2Id\2\0\0\0\7"s);
}

TEST(Message, FailureOnTheWire) {
    Reply failed = reply(ReplyKind::Failed);
    failed.result = EResultCode(code::busy, "x");

    EXPECT_EQ(encoded(failed), "\x81\1\2\3\4\0\0\0\x09\0\0\0\1x"s);
}

TEST(Message, RequestCutAtAnyByteIsRefused) {
    for (const Request& message : everyRequest())
        expectRefusedWhenCut(message);
}

TEST(Message, ReplyCutAtAnyByteIsRefused) {
    for (const Reply& message : everyReply())
        expectRefusedWhenCut(message);
}

TEST(Message, OneByteTooManyIsRefused) {
    for (const Request& message : everyRequest())
        expectRefused<Request>(encoded(message) + '\0');
    for (const Reply& message : everyReply())
        expectRefused<Reply>(encoded(message) + '\0');
}

TEST(Message, UnknownKindIsRefused) {
    const std::string body(64, '\0');
    for (const int kind : {0, 16, 127, 128, 134, 255})
        expectRefused<Request>(static_cast<char>(kind) + body.substr(0, 4));
    for (const int kind : {0, 1, 15, 127, 135, 255})
        expectRefused<Reply>(static_cast<char>(kind) + body.substr(0, 8));
}

TEST(Message, GreetingWithoutTheMagicNumberIsRefused) {
    expectRefused<Request>("\1\1\2\3\4HRCG\0\0\0\5horad\0\0\0\1"s);
}

TEST(Message, LengthsAndCountsThatLieAreRefused) {
    const std::string head = "\1\2\3\4"s;
    const std::string huge = "\xFF\xFF\xFF\xFF"s;
    expectRefused<Request>("\4"s + head + huge + "Wlan");         // a table's name
    expectRefused<Request>("\7"s + head + "\0\0\0\1"s + huge);    // a number of names
    expectRefused<Request>("\x0D"s + head + "\0\0\0\0"s + huge);  // a number of cells
    expectRefused<Reply>("\x82"s + head + huge + "\0\0\0\1A\0"s); // a number of tables
    expectRefused<Reply>("\x83"s + head + huge + "\0\0\0\1A\1"s); // a number of columns
    expectRefused<Reply>("\x85"s + head + huge);                  // a number of names
    expectRefused<Reply>("\x86"s + head + huge + "\0\0\0\1A\1"s); // a number of descriptions
    expectRefused<Reply>("\x86"s + head + "\0\0\0\1\0\0\0\1A\4"s + huge + "\0\0\0"s); // a kind
}

TEST(Message, RowsThatContradictThemselvesAreRefused) {
    const std::string head = "\x84\1\2\3\4\1"s;
    const std::string oneColumn = "\0\0\0\1\0\0\0\2Id"s;
    const std::string cell = "\2\0\0\0\7"s;
    expectRefused<Reply>(head + "\0\0\0\1\0\0\0\2"s + oneColumn + cell +
                         cell);                                          // more rows than the table has
    expectRefused<Reply>(head + "\0\0\0\2\0\0\0\2"s + oneColumn + cell); // a row is missing
    expectRefused<Reply>(head + "\0\0\0\1\0\0\0\1"s + oneColumn + cell + cell); // a cell too many
    expectRefused<Reply>(head + "\0\0\0\1\0\0\0\1\0\0\0\0"s);                   // a row without columns
    expectRefused<Reply>(head + "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s + oneColumn + cell);
    expectRefused<Reply>(head + "\0\0\0\1\0\0\0\1"s + oneColumn + "\x05\0\0\0\7"s); // of an unknown type
}

TEST(Message, ColumnOfAnUnknownTypeIsRefused) {
    expectRefused<Reply>("\x83\1\2\3\4\0\0\0\1\0\0\0\2Id\5"s);
}

TEST(Message, DescriptionOnTheWire) {
    Reply description = reply(ReplyKind::Description);
    description.descriptions = {someDescriptions()[0]};

    EXPECT_EQ(encoded(description),
              "\x86\1\2\3\4\0\0\0\1\0\0\0\2Id\2\0\0\0\7INTEGER"s + "\2\0\0\0\1\2\0\0\0\7\0"s);
}

TEST(Message, DescriptionWhoseValuesAreOfAnotherTypeIsRefused) {
    const auto refused = [](const ColumnDescription& column) {
        Reply description = reply(ReplyKind::Description);
        description.descriptions = {column};
        expectRefused<Reply>(encoded(description));
    };
    Value text;
    text.setText("7");
    const Value none;
    const Value number = integerValue(7);
    refused({"Id", Value::Integer, "INTEGER", text, number, none});
    refused({"Id", Value::Integer, "INTEGER", number, none, none});
    refused({"Id", Value::Integer, "INTEGER", number, number, text});
    refused({"Name", Value::Text, "TEXT", number, none, none});
    refused({"Name", Value::Text, "TEXT", none, text, none});
    refused({"Name", Value::Text, "TEXT", none, none, number});
    refused({"Name", Value::None, "TEXT", none, none, none});
    refused({"Name", 5, "TEXT", none, none, none});
}

TEST(Message, FailureWithTheCodeOfSuccessIsRefused) {
    expectRefused<Reply>("\x81\1\2\3\4\0\0\0\0\0\0\0\0"s);
}

TEST(Message, NothingOfAnEarlierMessageIsLeft) {
    Request read;
    for (const Request& message : everyRequest()) {
        ASSERT_TRUE(decode(encoded(message), read));
        EXPECT_TRUE(same(read, message)) << "kind " << static_cast<int>(message.kind);
    }
}

TEST(Message, IsAppendedBehindWhatIsThere) {
    std::string bytes = "before";

    encode(reply(ReplyKind::Done), bytes);

    EXPECT_EQ(bytes, "before\0\0\0\x09\x80\1\2\3\4\0\0\0\0"s);
}

TEST(Message, MessageOverTheLimitIsLeftToTheSender) {
    Request insert = request(RequestKind::Insert);
    Value text;
    text.setText(std::string(frameLimit, 'x'));
    insert.values.add("Name", text);
    std::string bytes;

    encode(insert, bytes);

    EXPECT_GT(bytes.size(), frameHeader + frameLimit);
}

} // namespace
} // namespace velta::protocol
