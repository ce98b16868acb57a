// Clients that hold the transaction one after the other, and one that asks for it in short slices.
#include "store/server/transactionqueue.h"

#include <algorithm>
#include <map>
#include <vector>

#include <gtest/gtest.h>

namespace {

using std::chrono::milliseconds;
using store::ClientId;
using store::Clock;

// Time passes as the queue and the clients say.
class Crowd {
public:
    Crowd(ClientId holders, milliseconds hold) : hold_(hold) {
        for (ClientId holder = 1; holder <= holders; ++holder) {
            queue_.join(holder, now_);
            queue_.ask(holder, 1, now_ + std::chrono::minutes(10), now_);
        }
        queue_.join(slicer, now_);
    }

    // How long somebody who asks for 500 ms every two seconds asks until it has it; it gives it back at once.
    Clock::duration sliceWait() {
        const Clock::time_point begin = now_;
        Clock::time_point next = now_;
        while (true) {
            if (now_ >= next) {
                queue_.ask(slicer, 1, now_ + milliseconds(500), now_);
                next = now_ + milliseconds(2000);
            }
            settle();
            if (queue_.owns(slicer))
                break;
            now_ = std::min({next, release_, asksAgain_, queue_.nextDeadline()});
        }
        queue_.release(now_);
        return now_ - begin;
    }
    void passTime(milliseconds time) {
        for (const Clock::time_point end = now_ + time; now_ < end;
             now_ = std::min({end, release_, asksAgain_, queue_.nextDeadline()}))
            settle();
    }
    // How often the least and the most fortunate of the holders had it.
    std::pair<int, int> turns() const {
        const auto [least, most] = std::minmax_element(
            turns_.begin(), turns_.end(), [](const auto& a, const auto& b) { return a.second < b.second; });
        return {least->second, most->second};
    }

private:
    static constexpr ClientId slicer = 99;

    void settle() {
        if (release_ <= now_) {
            queue_.release(now_);
            asking_ = holder_;
            asksAgain_ = now_ + milliseconds(1); // its next request is on the way
            release_ = Clock::time_point::max();
        } else if (asksAgain_ <= now_) {
            queue_.ask(asking_, 1, now_ + std::chrono::minutes(10), now_);
            asksAgain_ = Clock::time_point::max();
        }
        EXPECT_EQ(queue_.takeExpired(now_), std::nullopt);
        if (const auto turn = queue_.admit(now_); turn && turn->client != slicer) {
            holder_ = turn->client;
            ++turns_[holder_];
            release_ = now_ + hold_;
        }
        while (queue_.takeTimedOut(now_)) {
        }
    }

    const milliseconds hold_;
    store::TransactionQueue queue_{store::TransactionQueue::Limits()};
    Clock::time_point now_{std::chrono::hours(1)};
    Clock::time_point release_ = Clock::time_point::max();
    Clock::time_point asksAgain_ = Clock::time_point::max();
    ClientId holder_ = 0;
    ClientId asking_ = 0;
    std::map<ClientId, int> turns_;
};

struct Holders {
    ClientId count;
    int milliseconds; // that each holds it
    int mostWait;     // milliseconds: a round of all and a pause between two slices
};

class SlicesTest : public testing::TestWithParam<Holders> {};

TEST_P(SlicesTest, GetInAfterARoundOfTheOthersAndThoseTakeTurns) {
    Crowd crowd(GetParam().count, milliseconds(GetParam().milliseconds));
    crowd.passTime(milliseconds(20000));
    for (int i = 0; i < 200; ++i) {
        const Clock::duration wait = crowd.sliceWait();
        EXPECT_LE(wait.count(), Clock::duration(milliseconds(GetParam().mostWait)).count()) << i;
        crowd.passTime(milliseconds(137 * (i % 16))); // at any moment of the others' round, or at once
    }
    const auto [least, most] = crowd.turns();
    EXPECT_GE(least, most - 4);
}

INSTANTIATE_TEST_SUITE_P(Slices, SlicesTest,
                         testing::Values(Holders{1, 300, 2000}, Holders{3, 300, 3000}, Holders{16, 300, 5000},
                                         Holders{100, 300, 32000}, Holders{3, 50, 2000},
                                         Holders{16, 1000, 18000}, Holders{3, 2400, 9200}),
                         [](const auto& test) {
                             return std::to_string(test.param.count) + "Holders" +
                                    std::to_string(test.param.milliseconds) + "Milliseconds";
                         });

} // namespace
