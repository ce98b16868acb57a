#pragma once

#include "store/server/server.h"
#include "support/rawclient.h"
#include "support/temporarydirectory.h"

#include <chrono>
#include <functional>
#include <memory>

#include <gtest/gtest.h>

// A server in the test's own thread: it runs while the test waits for something.
class ServerTest : public testing::Test {
protected:
    using Client = std::unique_ptr<RawClient>;

    explicit ServerTest(const store::ServerOptions& options = {}, store::Sharing* sharing = nullptr,
                        const char* tables = testTables)
        : database(schemaOf(tables), ""), server(dispatcher, database, listening, options, sharing) {}

    // Whether it came true before the deadline.
    bool await(const std::function<bool()>& condition) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!condition()) {
            if (std::chrono::steady_clock::now() > deadline)
                return false;
            server.handleEvents(1);
        }
        return true;
    }

    Client connect() { return std::make_unique<RawClient>(path); }
    Client greeted() {
        Client client = connect();
        EXPECT_EQ(call(*client, ask::hello()).reply.number, velta::protocol::version);
        return client;
    }
    Client subscribed(const velta::NameList& tables, bool leaveOutOwn = false) {
        Client client = greeted();
        EXPECT_TRUE(succeeds(*client, ask::subscribe(tables, leaveOutOwn)));
        return client;
    }

    Answer next(RawClient& client) {
        const bool came = await([&client] {
            client.receive();
            return !client.answers.empty() || client.atEnd;
        });
        if (!came || client.answers.empty()) {
            ADD_FAILURE() << "no answer";
            return {};
        }
        Answer answer = client.answers.front();
        client.answers.pop_front();
        return answer;
    }
    Answer call(RawClient& client, const velta::protocol::Request& request) {
        const std::uint32_t sequence = client.send(request);
        Answer answer = next(client);
        EXPECT_EQ(answer.reply.sequence, sequence);
        return answer;
    }
    // The next answer with the rows of all its pieces; the failure, if that is how it ends.
    Answer whole(RawClient& client) {
        Answer answer = next(client);
        while (answer.reply.kind == velta::protocol::ReplyKind::Rows && !answer.reply.rows.last) {
            Answer piece = next(client);
            piece.rows.insert(piece.rows.begin(), answer.rows.begin(), answer.rows.end());
            answer = std::move(piece);
        }
        return answer;
    }
    int codeOf(RawClient& client, const velta::protocol::Request& request) {
        return call(client, request).reply.result.code();
    }
    bool succeeds(RawClient& client, const velta::protocol::Request& request) {
        return codeOf(client, request) == 0;
    }

    // One transaction with that one write.
    void commitEnable(RawClient& client, const std::string& table, int value) {
        EXPECT_TRUE(succeeds(client, ask::begin(5000)));
        EXPECT_TRUE(succeeds(client, ask::writeSingle(table, cell("Enable", switchValue(value)))));
        EXPECT_TRUE(succeeds(client, ask::plain(ask::RequestKind::Commit)));
    }
    static constexpr std::size_t largeRows = 600;
    // The table "Plans" is then over 2 MiB, more than a socket takes: output is left with the server.
    void addLargeRows(RawClient& client) {
        ASSERT_TRUE(succeeds(client, ask::begin(0)));
        insertLargeRows(client);
        ASSERT_TRUE(succeeds(client, ask::plain(ask::RequestKind::Commit)));
    }
    void insertLargeRows(RawClient& client) {
        for (std::size_t i = 0; i < largeRows; ++i)
            ASSERT_TRUE(
                succeeds(client, ask::insert("Plans", cell("Name", textValue(std::string(4096, 'x'))))));
    }
    // Its answer is begun, and the client takes none of it.
    void askWithoutReading(RawClient& client) {
        client.send(ask::readTable("Plans"));
        serveAll();
    }
    int enabled(RawClient& client, const std::string& table) {
        return call(client, ask::readTable(table)).rows.at(0).getValue("Enable").getInteger();
    }
    void serveFor(std::chrono::milliseconds time) {
        const auto end = std::chrono::steady_clock::now() + time;
        while (std::chrono::steady_clock::now() < end)
            server.handleEvents(1);
    }
    // Until the server waits for something to happen: several times in a row, since a busy round may take as
    // long as a wait.
    void serveAll() {
        int waits = 0;
        EXPECT_TRUE(await([this, &waits] {
            const auto begin = std::chrono::steady_clock::now();
            server.handleEvents(8);
            waits = std::chrono::steady_clock::now() - begin >= std::chrono::milliseconds(6) ? waits + 1 : 0;
            return waits >= 3;
        })) << "it is never at rest";
    }
    bool isClosed(RawClient& client) {
        return await([&client] {
            client.receive();
            return client.atEnd;
        });
    }

    TemporaryDirectory directory;
    const std::string path = directory.path("socket");
    velta::net::EventDispatcher dispatcher;
    store::Database database;
    store::ListeningSocket listening{path, std::nullopt};
    store::Server server;
};
