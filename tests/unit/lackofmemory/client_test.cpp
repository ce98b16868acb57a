// Of a client that finds no memory in the middle of an exchange, nothing is left but a closed connection.

#include "cfg/configclient.h"
#include "cfg/notificationhandler.h"
#include "cfg/requests.h"
#include "unit/cfg/support.h"
#include "unit/lackofmemory/expectations.h"

namespace {

using failingplaces::expectNoHarm;
using support::row;
using velta::protocol::EResultCode;

constexpr unsigned answerTimeout = 60; // seconds

// What found no memory has thrown; nothing else fails.
void must(const EResultCode& result) {
    if (!result.ok())
        ADD_FAILURE() << result.strerror();
}

class ClientWithoutMemory : public testing::Test {
protected:
    ClientWithoutMemory() { server.setTable("Plans", {row(1, "a name, not a short one"), row(2, "two")}); }

    fakes::ScriptedServer server;
};

TEST_F(ClientWithoutMemory, EndsItsExchange) {
    const auto work = [&] {
        orv::cfg::Connection connection(server.socketPath(), support::clientName, answerTimeout);
        must(connection.open());
        orv::cfg::ConfigClient client(connection, 0);
        unsigned count = 0;
        must(client.size("Plans", count));
        velta::ValueList values;
        must(client.selectRow("Plans", 0, values, {"Name"}));
        must(client.selectRowByKey("Plans", "Id", "2", values));
        must(client.startTransaction());
        must(client.updateRow("Plans", "Id", "2", row(2, "another name, not a short one")));
        must(client.closeTransaction());
        return values.getValue("Name").getText() + std::to_string(count);
    };
    expectNoHarm(work, 15);
}

TEST_F(ClientWithoutMemory, WaitsForNoAnswerThatItHasLost) {
    const auto work = [&] {
        orv::cfg::Connection connection(server.socketPath(), support::clientName, answerTimeout);
        must(connection.open());
        orv::cfg::ConfigClient client(connection, 0);
        must(client.startTransaction());
        orv::cfg::Pipeline writes = client.writesAhead();
        for (int id = 1; id <= 20; ++id)
            must(writes.send(orv::cfg::requests::insert("Plans", row(id, "a name, not a short one"))));
        must(writes.finish());
        return std::to_string(writes.done());
    };
    const auto begin = std::chrono::steady_clock::now();
    expectNoHarm(work, 8);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(answerTimeout))
        << "an answer that was lost is waited for";
}

TEST_F(ClientWithoutMemory, DeliversNothing) {
    const auto work = [&] {
        velta::net::EventDispatcher dispatcher;
        support::Calls calls;
        support::RecordingHandler handler(calls, "plans", {"Plans", "a table with a long name"});
        orv::cfg::NotificationHandler notifications(server.socketPath(), dispatcher, support::clientName,
                                                    true, answerTimeout, 500, true, false);
        notifications.registerConfigHandler(&handler);
        notifications.initialize();
        notifications.process();
        return std::to_string(calls.size());
    };
    expectNoHarm(work, 8);
}

} // namespace
