#include "store/server/output.h"

#include <algorithm>

#include <gtest/gtest.h>
#include <malloc.h>

namespace {

const std::string cells(100000, 'x');

velta::protocol::Reply replyOf(std::size_t size) {
    velta::protocol::Reply reply;
    reply.kind = velta::protocol::ReplyKind::Rows;
    reply.rows.cells = std::string_view(cells).substr(0, size);
    return reply;
}

TEST(Output, GivesAllBytesInOrder) {
    store::Output output;
    std::string expected;
    for (const std::size_t size : {1U, 100000U, 2U, 15000U, 15000U, 3U}) {
        output.append(replyOf(size));
        encode(replyOf(size), expected);
    }
    EXPECT_EQ(output.size(), expected.size());

    std::string taken;
    while (!output.empty()) {
        const std::string bytes(output.front().substr(0, 7000));
        taken += bytes;
        output.drop(bytes.size());
    }

    EXPECT_EQ(taken, expected);
}

std::size_t bytesAllocated() {
    const struct mallinfo2 info = mallinfo2(); // all 0 with the address sanitizer
    return info.uordblks + info.hblkhd;
}

// A client may stay a little behind for ever: what is sent must go although the output is never empty.
TEST(Output, HoldsNothingThatIsSentWhileItIsNeverEmpty) {
    const velta::protocol::Reply reply = replyOf(5000);
    store::Output output;
    output.append(reply);
    const std::size_t one = output.size();
    const std::size_t before = bytesAllocated();

    for (int i = 0; i < 1000; ++i) {
        output.append(reply);
        while (output.size() > one)
            output.drop(std::min(output.size() - one, output.front().size()));
    }

    EXPECT_LT(bytesAllocated(), before + 256 * 1024);
}

} // namespace
