#pragma once

#include "store/server/transactionqueue.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

// Plays what clients do to a queue, at times that it makes up, and writes down what comes of it. It looks
// after the queue as the server does: after each step, and whenever the queue says that it has something to
// do.
//
// A script is a list of "<milliseconds> <client> <verb>;". A client is a letter, a verb one of: joins, asks
// <milliseconds>, sends, ends, goes.
class QueueScript {
public:
    explicit QueueScript(const store::TransactionQueue::Limits& limits = {}) : queue(limits) {}

    // What happened: "<milliseconds> <client> begins|busy|expired; ..."
    std::string play(const std::string& script) {
        std::istringstream steps(script);
        std::string step;
        while (std::getline(steps, step, ';'))
            doStep(std::istringstream(step));
        return happened_;
    }
    // Goes on without a further step.
    std::string playUntil(std::int64_t milliseconds) {
        passTime(at(milliseconds));
        return happened_;
    }

    static store::Clock::time_point at(std::int64_t milliseconds) {
        return store::Clock::time_point(std::chrono::hours(1) + std::chrono::milliseconds(milliseconds));
    }

    store::TransactionQueue queue;

private:
    void doStep(std::istringstream step) {
        std::int64_t time = 0;
        char client = 0;
        std::string verb;
        if (!(step >> time >> client >> verb))
            return; // behind the last one
        passTime(at(time));
        doVerb(static_cast<store::ClientId>(client), verb, step);
        settle();
    }

    void doVerb(store::ClientId client, const std::string& verb, std::istringstream& rest) {
        if (verb == "joins") {
            queue.join(client, now_);
        } else if (verb == "asks") {
            std::int64_t wait = 0;
            rest >> wait;
            queue.ask(client, ++sequence_, now_ + std::chrono::milliseconds(wait), now_);
        } else if (verb == "sends") {
            EXPECT_TRUE(queue.owns(client));
            queue.heard(now_);
        } else if (verb == "ends") {
            EXPECT_TRUE(queue.owns(client)) << static_cast<char>(client) << " ends what it has not";
            queue.release(now_);
        } else if (verb == "goes") {
            queue.forget(client, now_);
        } else {
            ADD_FAILURE() << "no such verb: " << verb;
        }
    }

    void passTime(store::Clock::time_point until) {
        while (queue.nextDeadline() <= until) {
            now_ = std::max(now_, queue.nextDeadline());
            settle();
        }
        now_ = until;
    }

    // A deadline that is over would wake the server again and again.
    void settle() {
        settleOnce();
        if (queue.nextDeadline() <= now_)
            settleOnce();
        ASSERT_GT(queue.nextDeadline(), now_) << "nothing to do, and woken at once, after: " << happened_;
    }

    void settleOnce() {
        if (const auto owner = queue.takeExpired(now_))
            note(*owner, "expired");
        if (const auto turn = queue.admit(now_))
            note(turn->client, "begins");
        for (auto turn = queue.takeTimedOut(now_); turn; turn = queue.takeTimedOut(now_))
            note(turn->client, "busy");
    }

    void note(store::ClientId client, const char* what) {
        const auto since = std::chrono::duration_cast<std::chrono::milliseconds>(now_ - at(0)).count();
        happened_ += (happened_.empty() ? "" : "; ") + std::to_string(since) + ' ' +
                     static_cast<char>(client) + ' ' + what;
    }

    store::Clock::time_point now_ = at(0);
    std::uint32_t sequence_ = 0;
    std::string happened_;
};
