#include "store/cluster/bytequeue.h"

#include <algorithm>
#include <string>

#include <gtest/gtest.h>

namespace {

using store::ByteQueue;

TEST(ByteQueueTest, WhatCameFirstGoesFirst) {
    ByteQueue queue;
    queue.append("one");
    queue.append("two");
    EXPECT_EQ(queue.view(), "onetwo");
    EXPECT_EQ(queue.size(), 6U);

    queue.drop(1);
    EXPECT_EQ(queue.view(), "netwo");
    queue.drop(4);
    queue.append("three");
    EXPECT_EQ(queue.view(), "othree");
    queue.drop(6);
    EXPECT_TRUE(queue.empty());
}

TEST(ByteQueueTest, MuchGoesThroughInPiecesOfAllSizes) {
    ByteQueue queue;
    std::string sent;
    std::string received;
    for (std::size_t round = 0; round < 3000; ++round) {
        const std::string piece(round % 97, static_cast<char>('a' + round % 26));
        sent += piece;
        queue.append(piece);
        const std::size_t count = std::min(queue.size(), round % 101);
        received += queue.view().substr(0, count);
        queue.drop(count);
    }
    received += queue.view();
    EXPECT_EQ(received, sent);
}

} // namespace
