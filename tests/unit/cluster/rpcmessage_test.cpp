#include "store/cluster/rpcmessage.h"

#include <gtest/gtest.h>

namespace {

using store::Json;
using store::RpcMessage;
using store::rpcMessageOf;

std::optional<RpcMessage> read(const std::string& text) {
    std::string complaint = "of the message before";
    const std::optional<RpcMessage> message = rpcMessageOf(text, complaint);
    EXPECT_EQ(complaint, message ? "" : complaint);
    EXPECT_TRUE(message || !complaint.empty());
    return message;
}

TEST(RpcMessageTest, MethodWithAnIdIsARequest) {
    const auto message = read(R"({"id":"x","method":"echo","params":["p"]})");
    ASSERT_TRUE(message);
    EXPECT_EQ(message->kind, RpcMessage::Kind::Request);
    EXPECT_EQ(message->method, "echo");
    EXPECT_EQ(message->params, Json({"p"}));
    EXPECT_EQ(message->id, Json("x"));
}

TEST(RpcMessageTest, MethodWithoutAnIdIsANotification) {
    for (const char* const text :
         {R"({"id":null,"method":"update3","params":[1]})", R"({"method":"update3","params":[1]})"}) {
        const auto message = read(text);
        ASSERT_TRUE(message);
        EXPECT_EQ(message->kind, RpcMessage::Kind::Notification);
        EXPECT_EQ(message->method, "update3");
        EXPECT_EQ(message->params, Json({1}));
    }
}

TEST(RpcMessageTest, ResultOrErrorIsAnAnswer) {
    const auto result = read(R"({"id":7,"result":{"a":1},"error":null})");
    ASSERT_TRUE(result);
    EXPECT_EQ(result->kind, RpcMessage::Kind::Answer);
    EXPECT_EQ(result->answered, 7U);
    EXPECT_EQ(result->result, Json({{"a", 1}}));
    EXPECT_TRUE(result->error.is_null());

    const auto error = read(R"({"id":18446744073709551615,"error":"no"})");
    ASSERT_TRUE(error);
    EXPECT_EQ(error->answered, UINT64_MAX);
    EXPECT_TRUE(error->result.is_null());
    EXPECT_EQ(error->error, Json("no"));
}

TEST(RpcMessageTest, OfAMemberThatStandsTwiceTheLastCounts) {
    const auto message = read(R"({"id":1,"id":2,"result":3,"result":4})");
    ASSERT_TRUE(message);
    EXPECT_EQ(message->answered, 2U);
    EXPECT_EQ(message->result, Json(4));
}

struct Malformed {
    const char* text;
    const char* complaint;
};

class MalformedRpcMessageTest : public testing::TestWithParam<Malformed> {};

TEST_P(MalformedRpcMessageTest, IsRefusedWithAReason) {
    std::string complaint;
    EXPECT_FALSE(rpcMessageOf(GetParam().text, complaint));
    EXPECT_EQ(complaint, GetParam().complaint);
}

constexpr const char* neverMade = "an answer to a call that was never made";

const Malformed malformed[] = {
    {"", "not JSON at its byte 1"},
    {"{]", "not JSON at its byte 2"},
    {"{\"method\":\"\xff\"}", "not JSON at its byte 12"},
    {R"({"a":"\ud800"})", "not JSON at its byte 13"},
    {"{\"a\":\"\n\"}", "not JSON at its byte 7"},
    {R"({"a":1e999})", "a number out of all bounds"},
    {"[]", "not an object"},
    {"{}", R"(neither "method" nor "result" nor "error")"},
    {R"({"id":1})", R"(neither "method" nor "result" nor "error")"},
    {R"({"method":1,"params":[]})", R"("method" is not a text)"},
    {R"({"method":null,"params":[]})", R"("method" is not a text)"},
    {R"({"method":"echo"})", R"("params" is not an array)"},
    {R"({"method":"echo","params":{}})", R"("params" is not an array)"},
    {R"({"result":1})", neverMade},
    {R"({"id":null,"result":1})", neverMade},
    {R"({"id":-1,"result":1})", neverMade},
    {R"({"id":1.0,"result":1})", neverMade},
    {R"({"id":"1","result":1})", neverMade},
    {R"({"id":18446744073709551616,"result":1})", neverMade},
    {R"({"id":[1],"error":1})", neverMade},
};

INSTANTIATE_TEST_SUITE_P(Messages, MalformedRpcMessageTest, testing::ValuesIn(malformed));

TEST(RpcMessageTest, SentMessagesAreWhatTheyWereMadeOf) {
    EXPECT_EQ(Json::parse(store::requestText("a\"b", {1, "x"}, 5)),
              Json({{"method", "a\"b"}, {"params", {1, "x"}}, {"id", 5}}));
    EXPECT_EQ(Json::parse(store::answerText({1}, nullptr, "x")),
              Json({{"result", {1}}, {"error", nullptr}, {"id", "x"}}));
}

} // namespace
