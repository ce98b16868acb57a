#pragma once

#include "store/cluster/rpcconnection.h"
#include "support/rawmember.h"
#include "support/temporarydirectory.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

// A connection and the member at its other end, at a time that stands still unless it is told to go on. What
// happens is written down in one list.
class RpcConnectionTest : public testing::Test {
protected:
    using RpcConnection = store::RpcConnection;
    using Json = store::Json;

    RpcConnection::Events events() {
        return {[this] { happened.emplace_back("opened"); },
                [this](const std::string& method, const Json& params) {
                    happened.push_back("notified " + method + ' ' + params.dump());
                },
                [this](const std::string& reason) { happened.push_back("closed: " + reason); }};
    }

    RpcConnection::Answer notingAnswer(const std::string& name) {
        return [this, name](const Json& result, const Json& error) {
            happened.push_back(name + ' ' + result.dump() + ' ' + error.dump());
        };
    }

    void round(unsigned milliseconds = 0) {
        dispatcher.handleEvents(milliseconds);
        connection.settle(now);
    }

    // Rounds until so much has happened, or ten seconds are over.
    void waitFor(std::size_t count) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (happened.size() < count && std::chrono::steady_clock::now() < end)
            round(100);
        ASSERT_GE(happened.size(), count);
    }

    void connect() {
        connection.open(member.remote());
        ASSERT_NO_FATAL_FAILURE(waitFor(1));
        ASSERT_EQ(happened, std::vector<std::string>{"opened"});
        member.accept();
        happened.clear();
    }

    // What happens next, and nothing else.
    std::string next() {
        waitFor(1);
        round();
        const std::string only = happened.size() == 1 ? happened.front() : "several things, or none";
        happened.clear();
        return only;
    }

    TemporaryDirectory directory;
    RawMember member{directory.path("member")};
    velta::net::EventDispatcher dispatcher;
    RpcConnection::Clock::time_point now{std::chrono::hours(1)};
    std::vector<std::string> happened;
    RpcConnection connection{dispatcher, events()};
};
