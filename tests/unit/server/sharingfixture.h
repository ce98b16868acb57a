#pragma once

#include "support/fakesharing.h"
#include "unit/server/serverfixture.h"
#include "unit/storage/sharedtables.h"

#include <chrono>
#include <string>

struct OtherDevices {
    fakes::FakeSharing sharing;
};

// A server that shares tables with other devices.
class SharingTest : protected OtherDevices, public ServerTest {
protected:
    static constexpr std::chrono::milliseconds shortTime{50};

    explicit SharingTest(const store::ServerOptions& options = {})
        : ServerTest(options, &sharing, sharedTables) {
        store::SharedRows::Memory memory;
        EXPECT_TRUE(database.sharedRows().begin("here", memory).ok());
        (void)applyTo(database,
                      {{planUpdate("u1", 1, "a", ""), planUpdate("u2", 2, "b", ""), globalsUpdate("g", 0)},
                       true,
                       false,
                       {}});
    }

    // Requests of a row of "Plans".
    static ask::Request byKey(ask::RequestKind kind, const std::string& column, const std::string& key) {
        ask::Request request = ask::ofTable(kind, "Plans");
        request.keyColumn = column;
        request.key = key;
        return request;
    }
    static ask::Request update(int id, const velta::ValueList& values) {
        ask::Request request = byKey(ask::RequestKind::Update, "Id", std::to_string(id));
        request.values = values;
        return request;
    }
    static ask::Request rename(int id, const std::string& name) {
        return update(id, cell("Name", textValue(name)));
    }
    static ask::Request insert(const std::string& name) {
        return ask::insert("Plans", cell("Name", textValue(name)));
    }

    // Begins a transaction with these writes, all of which succeed at once.
    void begin(RawClient& client, const std::vector<ask::Request>& writes) {
        ASSERT_TRUE(succeeds(client, ask::begin(0)));
        for (const ask::Request& write : writes)
            ASSERT_TRUE(succeeds(client, write));
    }
    // Sends what is not answered yet, until the server has asked the other devices.
    void start(RawClient& client, const ask::Request& request) {
        const std::size_t before = sharing.commits.size() + sharing.reservations.size();
        client.send(request);
        ASSERT_TRUE(await([&] { return sharing.commits.size() + sharing.reservations.size() > before; }));
    }
    bool hasNoAnswer(RawClient& client) {
        server.handleEvents(0);
        client.receive();
        return client.answers.empty();
    }
    int nextCode(RawClient& client) { return next(client).reply.result.code(); }

    // The other devices keep the next commit: it comes back as an update, and ends while it is applied.
    void keepCommit() {
        auto kept = fakes::FakeSharing::take(sharing.commits);
        sharing.updates.push_back([this, kept] {
            store::SharedUpdates updates;
            for (const store::SharedChange::Row& row : kept.change.rows)
                updates.rows.push_back(updateOf(row));
            const auto applied = applyTo(database, updates);
            kept.done({});
            return applied.changed;
        });
    }
    static store::SharedUpdate updateOf(const store::SharedChange::Row& row) {
        store::SharedUpdate update{row.row.table, row.row.uuid, std::nullopt};
        if (update.uuid.empty())
            update.uuid = "new" + std::to_string(row.row.id);
        if (!row.after)
            return update;
        update.values = store::SharedUpdate::Values{row.row.id, {}};
        for (const velta::Value& value : *row.after)
            update.values->cells.emplace_back(value);
        return update;
    }
    // Another device renames the first plan.
    void renameElsewhere(const std::string& name) {
        sharing.updates.push_back([this, name] {
            return applyTo(database, {{planChange("u1", name, std::nullopt)}, false, false, {}}).changed;
        });
    }
    // The turn is free: another client gets it at once, and its commit of a local cell is kept.
    void commitLocally(RawClient& client) {
        ASSERT_TRUE(succeeds(client, ask::begin(0)));
        ASSERT_TRUE(succeeds(client, ask::writeSingle("Other", cell("Enable", switchValue(1)))));
        ASSERT_TRUE(succeeds(client, commitRequest));
        ASSERT_EQ(enabled(client, "Other"), 1);
    }
    std::string nameOf(int id) {
        for (const velta::ValueList& row : tableOf(database, "Plans"))
            if (row.getValue("Id").getInteger() == id)
                return row.getValue("Name").getText();
        return "no row";
    }

    const ask::Request commitRequest = ask::plain(ask::RequestKind::Commit);
    const ask::Request abortRequest = ask::plain(ask::RequestKind::Abort);
    Client first = greeted();
    const Client second = greeted();
};
