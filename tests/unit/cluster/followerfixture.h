#pragma once

#include "store/cluster/clusternews.h"
#include "store/cluster/follower.h"
#include "support/capturedlog.h"
#include "support/temporarydirectory.h"
#include "unit/cluster/memberscript.h"
#include "unit/storage/sharedtables.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// A device and the members that it knows, at a time that stands still unless it is told to go on.
class FollowerTest : public testing::Test {
protected:
    using Follower = store::Follower;
    using Json = store::Json;
    using Clock = Follower::Clock;

    // Members that are up. Paths where nobody listens come last.
    void start(std::size_t up, std::size_t down = 0) {
        std::vector<store::Remote> remotes;
        for (std::size_t i = 0; i < up; ++i) {
            members.push_back(std::make_unique<MemberScript>(directory.path(nameOf(i)), [this] { round(); }));
            remotes.push_back(members.back()->raw().remote());
        }
        for (std::size_t i = up; i < up + down; ++i) {
            std::string wrong;
            remotes.push_back(store::remoteOf("unix:" + directory.path(nameOf(i)), wrong).value());
        }
        follower.emplace(dispatcher, remotes, schema, monitorRequests(schema, "attic"), events(), pace());
        round();
    }

    MemberScript& member(std::size_t i = 0) { return *members.at(i); }

    void round() {
        for (int i = 0; i < 3; ++i) { // what is sent in one is answered in the next
            dispatcher.handleEvents(0);
            follower->settle();
        }
    }
    void pass(Clock::duration time) {
        now += time;
        round();
    }
    // How long the pause is in which it is; afterwards it is over.
    Clock::duration passPause() {
        const Clock::duration pause = follower->nextDeadline() - now;
        pass(pause);
        return pause;
    }

    // The member is followed afterwards.
    void follow(std::size_t i = 0, const Json& server = {{"connected", true}, {"index", 5}}) {
        member(i).acceptWith(schema, server);
        member(i).tellTables(false, "t1", Json::object());
    }

    // What was logged, without the directory of the sockets.
    std::vector<std::string> lines() const {
        std::vector<std::string> found = log.lines();
        for (std::string& line : found)
            for (std::size_t at = line.find(directory.path("")); at != std::string::npos;
                 at = line.find(directory.path("")))
                line.erase(at, directory.path("").size());
        return found;
    }

    const TemporaryDirectory directory;
    const store::Schema schema = schemaOf(sharedTables);
    fakes::CapturedLog log;
    velta::net::EventDispatcher dispatcher;
    Clock::time_point now{std::chrono::hours(1)};
    double random = 1;
    store::SharedPosition position;
    std::vector<Follower::News> told;
    std::string complaint; // about what is told
    bool catchesUp = true; // what is told at first is in force at once
    std::vector<bool> readiness;
    std::vector<std::unique_ptr<MemberScript>> members;
    std::optional<Follower> follower;

private:
    static std::string nameOf(std::size_t i) { return std::string(1, static_cast<char>('a' + i)); }

    Follower::Events events() {
        return {[this] { return position; },
                [this](Follower::News news) {
                    told.push_back(std::move(news));
                    if (catchesUp && told.back().isFirst && complaint.empty())
                        follower->caughtUp();
                    return complaint;
                },
                [this](bool ready) { readiness.push_back(ready); }};
    }
    Follower::Pace pace() {
        Follower::Pace pace;
        pace.random = [this] { return random; };
        pace.now = [this] { return now; };
        return pace;
    }
};
