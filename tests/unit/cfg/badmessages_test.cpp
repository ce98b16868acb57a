#include "cfg/configclient.h"
#include "unit/cfg/support.h"
#include "velta/protocol/wire.h"

namespace orv::cfg {

using fakes::frameOf;
using fakes::replyTo;
using fakes::rowsFrame;
using fakes::ScriptedServer;
using support::CapturedLog;
using velta::protocol::Reply;
using velta::protocol::ReplyKind;
using velta::protocol::Request;
using velta::protocol::RequestKind;
namespace code = velta::protocol::code;

namespace {

std::string header(std::uint32_t length) {
    std::string bytes;
    velta::protocol::Writer(bytes).number32(length);
    return bytes;
}

std::string framed(const std::string& message) {
    return header(static_cast<std::uint32_t>(message.size())) + message;
}

std::string done(const Request& request) {
    return frameOf(replyTo(request));
}

// The bytes of one None cell.
const std::string noneCell(1, '\0');

std::string rowsWithoutEnd(const Request& request) {
    std::string bytes;
    for (int i = 0; i < 5000; ++i)
        bytes += rowsFrame(request, false, 1000, 1, {"Id"}, noneCell);
    return bytes;
}

std::string largerThanAnyTable(const Request& request) {
    std::string text;
    velta::Value value;
    value.setText(std::string(1000 * 1000, 'x'));
    velta::protocol::Writer(text).value(value);
    std::string bytes;
    for (int i = 0; i < 280; ++i)
        bytes += rowsFrame(request, false, 1000, 1, {"Id"}, text);
    return bytes;
}

std::string strangersNotices(const Request& request) {
    std::string bytes;
    for (int i = 0; i < 10000; ++i) {
        Reply notice;
        notice.kind = ReplyKind::Notice;
        notice.names = {"Table" + std::to_string(i)};
        bytes += frameOf(notice);
    }
    return bytes + rowsFrame(request, true, 0, 0, {}, "");
}

struct BadAnswer {
    const char* name;
    std::function<std::string(const Request&)> bytes;
};

std::ostream& operator<<(std::ostream& stream, const BadAnswer& bad) {
    return stream << bad.name;
}

const BadAnswer badAnswers[] = {
    {"FrameTooLong", [](const Request&) { return header(velta::protocol::frameLimit + 1); }},
    {"FrameOfAllLengths", [](const Request&) { return header(0xFFFFFFFF); }},
    {"FrameOfNoLength", [](const Request&) { return header(0); }},
    {"UnknownKind", [](const Request&) { return framed("\x7F____"); }},
    {"RequestAsAnswer", [](const Request&) { return framed(std::string("\x09\0\0\0\1", 5)); }},
    {"KindAndNothing", [](const Request&) { return framed("\x80"); }},
    {"Truncated", [](const Request& request) { return framed(done(request).substr(4, 7)); }},
    {"BytesLeftOver", [](const Request& request) { return framed(done(request).substr(4) + "x"); }},
    {"FailureThatIsNone",
     [](const Request& request) { return frameOf(replyTo(request, ReplyKind::Failed)); }},
    {"LyingTextLength",
     [](const Request& request) {
         std::string message;
         velta::protocol::Writer writer(message);
         writer.number8(static_cast<std::uint8_t>(ReplyKind::Failed));
         writer.number32(request.sequence);
         writer.number32(1);
         writer.number32(0xFFFFFFF0);
         return framed(message + "text");
     }},
    {"LyingNumberOfNames",
     [](const Request&) {
         std::string message;
         velta::protocol::Writer writer(message);
         writer.number8(static_cast<std::uint8_t>(ReplyKind::Notice));
         writer.number32(0);
         writer.number32(0x40000000);
         return framed(message);
     }},
    {"LyingNumberOfRows",
     [](const Request& request) { return rowsFrame(request, true, 2, 2, {"Id"}, noneCell); }},
    {"RowsWithoutColumns",
     [](const Request& request) { return rowsFrame(request, true, 0xFFFFFFFF, 0xFFFFFFFF, {}, ""); }},
    {"CellOfAnUnknownType",
     [](const Request& request) { return rowsFrame(request, true, 1, 1, {"Id"}, "\x05"); }},
    {"WrongSequence",
     [](const Request& request) {
         Request other = request;
         ++other.sequence;
         return rowsFrame(other, true, 0, 0, {}, "");
     }},
    {"WrongKind", done},
    {"FewerRowsThanAnnounced",
     [](const Request& request) { return rowsFrame(request, true, 2, 1, {"Id"}, noneCell); }},
    {"RowsButNotTheLastPiece",
     [](const Request& request) { return rowsFrame(request, false, 1, 1, {"Id"}, noneCell); }},
    {"PieceOfNoRows", [](const Request& request) { return rowsFrame(request, false, 2, 0, {"Id"}, ""); }},
    {"AnotherTotal",
     [](const Request& request) {
         return rowsFrame(request, false, 3, 1, {"Id"}, noneCell) +
                rowsFrame(request, true, 2, 1, {"Id"}, noneCell);
     }},
    {"OtherColumns",
     [](const Request& request) {
         return rowsFrame(request, false, 2, 1, {"Id"}, noneCell) +
                rowsFrame(request, true, 2, 1, {"Id", "Name"}, noneCell + noneCell);
     }},
    {"PiecesWithoutEnd", rowsWithoutEnd},
    {"LargerThanAnyTable", largerThanAnyTable},
    {"TooManyNotices", strangersNotices},
};

class BadAnswerTest : public testing::TestWithParam<BadAnswer> {};

} // namespace

TEST_P(BadAnswerTest, ClosesTheConnectionWithOneWarning) {
    ScriptedServer server;
    Connection connection(server.socketPath(), support::clientName, 60);
    ConfigClient client(connection, 500);
    ASSERT_TRUE(connection.open().ok());
    server.answer(RequestKind::ReadTable, GetParam().bytes);

    CapturedLog log;
    unsigned rows = 0;
    EXPECT_EQ(client.size("A", rows).code(), code::badMessage);
    EXPECT_FALSE(connection.isOpen());
    EXPECT_EQ(log.warnings(), 1) << log.text();
    EXPECT_EQ(log.lines(), 1) << log.text();
}

INSTANTIATE_TEST_SUITE_P(Client, BadAnswerTest, testing::ValuesIn(badAnswers),
                         [](const auto& bad) { return std::string(bad.param.name); });

TEST(BadMessages, CloseAtEveryByteOfAnAnswerIsAnErrorWithOneWarning) {
    ScriptedServer server;
    server.setTable("A", {support::row(1, "one")});
    Request request;
    request.kind = RequestKind::ReadTable;
    request.table = "A";
    const std::size_t size = server.usualAnswer(request).size();
    for (std::size_t bytes = 0; bytes < size; ++bytes) {
        Connection connection(server.socketPath(), support::clientName, 10);
        ConfigClient client(connection, 500);
        ASSERT_TRUE(connection.open().ok());
        server.closeWithin(RequestKind::ReadTable, bytes);
        CapturedLog log;
        unsigned rows = 0;
        EXPECT_EQ(client.size("A", rows).code(), bytes == 0 ? code::notConnected : code::badMessage) << bytes;
        EXPECT_FALSE(connection.isOpen()) << bytes;
        EXPECT_EQ(log.lines(), 1) << bytes << log.text();
    }
}

TEST(BadMessages, AnswerThatNobodyAskedForClosesTheConnection) {
    ScriptedServer server;
    Connection connection(server.socketPath(), support::clientName, 10);
    ASSERT_TRUE(connection.open().ok());
    server.send(done(Request()));
    CapturedLog log;
    connection.receive();
    EXPECT_FALSE(connection.isOpen());
    EXPECT_EQ(log.warnings(), 1) << log.text();
}

// It comes while nothing is asked. Nobody hears of it but the log, and whoever asks next.
TEST(BadMessages, WhatComesInBetweenAndIsNoNoticeClosesTheConnection) {
    Reply refusal;
    refusal.kind = ReplyKind::Failed;
    refusal.result = velta::protocol::EResultCode(code::tooManyClients, "try later");
    const std::pair<std::string, const char*> cases[] = {
        {framed("\xff"), "malformed"},
        {header(0xffffffffU), "a frame of an impossible length"},
        {frameOf(refusal), "try later"}};
    for (const auto& [bytes, reason] : cases) {
        ScriptedServer server;
        Connection connection(server.socketPath(), support::clientName, 10);
        ConfigClient client(connection, 500);
        ASSERT_TRUE(connection.open().ok());
        server.send(bytes);
        CapturedLog log;
        connection.receive();
        EXPECT_FALSE(connection.isOpen()) << reason;
        EXPECT_EQ(log.lines(), 1) << log.text();
        EXPECT_NE(log.text().find(reason), std::string::npos) << log.text();
        unsigned rows = 0;
        EXPECT_EQ(client.size("A", rows).code(), code::notConnected) << reason;
    }
}

TEST(BadMessages, OneNoticeOfEnormousNamesIsRefused) {
    ScriptedServer server;
    Connection connection(server.socketPath(), support::clientName, 10);
    ConfigClient client(connection, 500);
    ASSERT_TRUE(connection.open().ok());
    server.answer(RequestKind::Begin, [](const Request& request) {
        Reply notice;
        notice.kind = ReplyKind::Notice;
        notice.names = {std::string(500 * 1000, 'x')};
        return frameOf(notice) + done(request);
    });
    CapturedLog log;
    EXPECT_EQ(client.startTransaction().code(), code::badMessage);
    EXPECT_EQ(log.warnings(), 1) << log.text();
}

} // namespace orv::cfg
