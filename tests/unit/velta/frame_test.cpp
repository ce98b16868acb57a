#include "velta/protocol/frame.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace velta::protocol {
namespace {

using namespace std::string_literals;

using Next = FrameReader::Next;

std::string framed(const std::string& message) {
    std::string bytes;
    const std::size_t begin = beginFrame(bytes);
    bytes += message;
    endFrame(bytes, begin);
    return bytes;
}

void append(FrameReader& reader, const std::string& bytes) {
    reader.append(bytes.data(), bytes.size());
}

std::vector<std::string> messagesOf(FrameReader& reader) {
    std::vector<std::string> messages;
    std::string_view message;
    while (reader.next(message) == Next::Message)
        messages.emplace_back(message);
    return messages;
}

TEST(Frame, LengthStandsInFrontInNetworkOrder) {
    EXPECT_EQ(framed("abc"), "\0\0\0\3abc"s);
    EXPECT_EQ(framed(std::string(0x10203, 'x')).substr(0, 4), "\0\1\2\3"s);
}

TEST(Frame, IsAppendedBehindOtherFrames) {
    std::string bytes = framed("first");

    const std::size_t begin = beginFrame(bytes);
    bytes += "second";
    endFrame(bytes, begin);

    EXPECT_EQ(bytes, framed("first") + framed("second"));
}

TEST(FrameReader, TakesOutSeveralMessagesOfOneRead) {
    FrameReader reader;

    append(reader, framed("first") + framed("second"));

    EXPECT_EQ(messagesOf(reader), (std::vector<std::string>{"first", "second"}));
    EXPECT_EQ(reader.pending(), 0U);
}

TEST(FrameReader, PutsAMessageTogetherFromSingleBytes) {
    FrameReader reader;
    std::vector<std::string> messages;

    for (const char byte : framed("night") + framed("day")) {
        reader.append(&byte, 1);
        for (const std::string& message : messagesOf(reader))
            messages.push_back(message);
    }

    EXPECT_EQ(messages, (std::vector<std::string>{"night", "day"}));
}

TEST(FrameReader, CountsTheBytesOfAFrameThatHasNotEnded) {
    FrameReader reader;

    append(reader, framed("first") + framed("second").substr(0, 7));

    EXPECT_EQ(messagesOf(reader).size(), 1U);
    EXPECT_EQ(reader.pending(), 7U);
}

TEST(FrameReader, TakesAMessageOfTheGreatestSize) {
    FrameReader reader;

    append(reader, framed(std::string(frameLimit, 'x')));

    std::string_view message;
    ASSERT_EQ(reader.next(message), Next::Message);
    EXPECT_EQ(message.size(), frameLimit);
}

TEST(FrameReader, BreaksAtALengthThatCantBe) {
    for (const std::string& header : {"\0\0\0\0"s, "\0\x10\0\1"s, "\xFF\xFF\xFF\xFF"s}) {
        FrameReader reader;
        std::string_view message;

        append(reader, header);

        EXPECT_EQ(reader.next(message), Next::Broken);
        EXPECT_EQ(reader.next(message), Next::Broken) << "it stays broken";
    }
}

TEST(FrameReader, GivesOutWhatCameBeforeTheBrokenLength) {
    FrameReader reader;
    std::string_view message;

    append(reader, framed("first") + "\0\0\0\0"s);

    EXPECT_EQ(reader.next(message), Next::Message);
    EXPECT_EQ(message, "first");
    EXPECT_EQ(reader.next(message), Next::Broken);
}

} // namespace
} // namespace velta::protocol
