#include "store/cluster/jsonstream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using store::JsonStream;
using testing::ElementsAre;

constexpr std::size_t limit = 100; // bytes of an object

// What comes out of a stream that gets the text in pieces of that size; last, its complaint if it is broken.
std::vector<std::string> cut(const std::string& text, std::size_t pieceSize, std::size_t sizeLimit = limit) {
    JsonStream stream(sizeLimit);
    std::vector<std::string> messages;
    for (std::size_t at = 0; at < text.size(); at += pieceSize) {
        stream.append(std::string_view(text).substr(at, pieceSize));
        std::string_view message;
        JsonStream::Next next = stream.next(message);
        for (; next == JsonStream::Next::Message; next = stream.next(message))
            messages.emplace_back(message);
        if (next == JsonStream::Next::Broken) {
            messages.push_back(stream.complaint());
            break;
        }
    }
    return messages;
}

struct Case {
    const char* name;
    std::string text;
    std::vector<std::string> messages;
};

std::string deep(std::size_t depth) {
    return std::string(R"({"a":)") + std::string(depth - 1, '[') + std::string(depth - 1, ']') + '}';
}

class JsonStreamTest : public testing::TestWithParam<Case> {};

TEST_P(JsonStreamTest, IsCutTheSameWhateverThePieces) {
    const std::string& text = GetParam().text;
    for (std::size_t pieceSize = 1; pieceSize <= text.size(); ++pieceSize)
        EXPECT_EQ(cut(text, pieceSize), GetParam().messages) << "in pieces of " << pieceSize;
}

const Case cases[] = {
    {"One", R"({"a":1})", {R"({"a":1})"}},
    {"BackToBack", R"({}{"a":[]}{})", {"{}", R"({"a":[]})", "{}"}},
    {"BlanksBetween", " \r\n{}\t{}\n", {"{}", "{}"}},
    {"BracesInATextDoNotCount", R"({"}{":"]["}{})", {R"({"}{":"]["})", "{}"}},
    {"EscapedQuoteDoesNotEndAText", R"({"a\"}":"\\"}{})", {R"({"a\"}":"\\"})", "{}"}},
    {"UnfinishedGivesNothing", R"({}{"a":{})", {"{}"}},
    {"NothingButBlanks", " \n\t", {}},
    {"Nested", R"({"a":{"b":[{"c":[]}]}}{})", {R"({"a":{"b":[{"c":[]}]}})", "{}"}},
    {"DepthAtItsLimit", deep(JsonStream::depthLimit), {deep(JsonStream::depthLimit)}},
    {"DepthAboveItsLimit",
     "{}" + deep(JsonStream::depthLimit + 1),
     {"{}", "objects and arrays more than 32 deep, at byte 38 of the stream"}},
    {"SizeAtItsLimit",
     R"({"a":")" + std::string(limit - 8, 'x') + R"("}{})",
     {R"({"a":")" + std::string(limit - 8, 'x') + R"("})", "{}"}},
    {"SizeAboveItsLimit",
     R"({"a":")" + std::string(limit - 7, 'x') + R"("}{})",
     {"an object of more than 100 bytes, at byte 100 of the stream"}},
    {"ArrayIsNoMessage", "{} []", {"{}", "\"[\" where an object should begin, at byte 3 of the stream"}},
    {"TextOfAnotherProtocol", "HTTP/1.1", {"\"H\" where an object should begin, at byte 0 of the stream"}},
    {"ClosingBraceIsNoBegin", "{}}{}", {"{}", "\"}\" where an object should begin, at byte 2 of the stream"}},
    {"ZeroByteIsNoBegin",
     std::string("{}\0{}", 5),
     {"{}", "the byte 0 where an object should begin, at byte 2 of the stream"}},
    {"OtherBytesAreNoBegin",
     "\xff\xfe",
     {"the byte 255 where an object should begin, at byte 0 of the stream"}},
};

INSTANTIATE_TEST_SUITE_P(Streams, JsonStreamTest, testing::ValuesIn(cases),
                         [](const testing::TestParamInfo<Case>& tested) { return tested.param.name; });

TEST(JsonStreamBrokenTest, StaysBrokenWhateverFollows) {
    JsonStream stream(limit);
    std::string_view message;
    stream.append("x");
    EXPECT_EQ(stream.next(message), JsonStream::Next::Broken);
    stream.append("{}");
    EXPECT_EQ(stream.next(message), JsonStream::Next::Broken);
    EXPECT_EQ(stream.complaint(), "\"x\" where an object should begin, at byte 0 of the stream");
}

std::string manyValues(std::size_t count) {
    std::string text = R"({"a":[)"; // which are two of them
    for (std::size_t i = 2; i < count; ++i)
        text += "0,";
    return text + "0]}";
}

TEST(JsonStreamValuesTest, ObjectOfTooManyValuesIsRefused) {
    const std::string most = manyValues(JsonStream::valueLimit);
    EXPECT_THAT(cut(most + most, 1000, 4'000'000), ElementsAre(most, most));
    EXPECT_THAT(cut(manyValues(JsonStream::valueLimit + 1), 1000, 4'000'000),
                ElementsAre("more than 524288 values in an object, at byte 1048579 of the stream"));
}

// In time that grows with the square of the bytes, these would take minutes.
TEST(JsonStreamTimeTest, LargeObjectMayComeByteByByte) {
    const std::string object = R"({"a":")" + std::string(4'000'000, 'x') + R"("})";
    EXPECT_THAT(cut(object, 1, object.size()), ElementsAre(object));
}

TEST(JsonStreamTimeTest, ManyObjectsMayComeAtOnce) {
    std::string text;
    for (int i = 0; i < 1'000'000; ++i)
        text += "{}\n";
    EXPECT_EQ(cut(text, text.size()).size(), 1'000'000U);
}

} // namespace
