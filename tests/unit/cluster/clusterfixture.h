#pragma once

#include "store/cluster/cluster.h"
#include "support/capturedlog.h"
#include "support/fakeovsdb.h"
#include "support/temporarydirectory.h"
#include "unit/cluster/memberscript.h"
#include "unit/storage/shakydisk.h"
#include "unit/storage/sharedtables.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// The device "kitchen" with a database of its own, and a member of a cluster. Transactions are carried out
// in `held`; what the member tells of that is for the test to say.
class ClusterTest : public testing::Test {
protected:
    using Cluster = store::Cluster;
    using Json = store::Json;
    using Clock = Cluster::Clock;
    using Result = Cluster::Result;

    ClusterTest() {
        held.addIndex("Devices", {"Name"});
        held.addIndex("Plans", {"Id"});
        held.addIndex("Reserved", {"Table", "Id"});
        store::SharedRows::Memory memory;
        EXPECT_TRUE(database.sharedRows().begin("kitchen", memory).ok());
    }

    // The store begins to follow, or does so again.
    void start() {
        cluster.reset();
        Cluster::Times times;
        times.pace.random = [] { return 1.0; };
        times.pace.now = [this] { return now += tick; };
        cluster.emplace(dispatcher, database, std::vector{member.raw().remote()}, times);
        round();
    }

    void round() {
        for (int i = 0; i < 3; ++i) { // what is sent in one is answered in the next
            dispatcher.handleEvents(0);
            cluster->settle(now);
            if (applies && cluster->hasUpdates())
                changed.push_back(cluster->apply());
        }
    }
    void pass(Clock::duration time) {
        now += time;
        round();
    }

    // The member tells that it holds this. Returns since which transaction it was asked.
    std::string follow(bool found, const std::string& transaction, const Json& tables, int index = 5) {
        member.acceptWith(database.schema(), {{"connected", true}, {"index", index}});
        return member.tellTables(found, transaction, tables)[3];
    }
    // The same after the connection was lost.
    std::string followAgain(bool found, const std::string& transaction, const Json& tables, int index = 5) {
        member.disconnect();
        pass(std::chrono::minutes(1));
        return follow(found, transaction, tables, index);
    }

    // The rows that were made in `held`, as the member tells them.
    Json heldRows(const std::string& kind) {
        Json tables = Json::object();
        for (const char* const table : {"Plans", "Globals", "Cluster", "Devices"})
            for (Json row : held.rows(table)) {
                const std::string uuid = row.at("_uuid").at(1);
                row.erase("_uuid");
                tables[table][uuid] = {{kind, row}};
            }
        return tables;
    }
    // A cluster that another device has filled, as the member tells it at the beginning.
    static Json filled(const Json& plans, const std::string& cluster = "c1") {
        return {{"Plans", plans}, {"Cluster", {{cluster, {{"initial", {{"SeededBy", "attic"}}}}}}}};
    }
    static Json plan(int id, const std::string& name) { return {{"initial", {{"Id", id}, {"Name", name}}}}; }

    // Answers a transaction that was sent, if there is one.
    bool carryOut() {
        const std::optional<Json> call = member.raw().poll();
        if (!call)
            return false;
        EXPECT_EQ(call->at("method"), "transact") << call->dump();
        Json operations = call->at("params");
        operations.erase(0);
        lastOperations = operations;
        member.raw().answer(call->at("id"), held.transact(operations));
        round();
        return true;
    }
    void carryOutAll() {
        while (carryOut()) {
        }
    }

    store::SharedPosition position() {
        store::SharedRows::Memory memory;
        EXPECT_TRUE(database.sharedRows().begin("another", memory).ok());
        return memory.position;
    }
    std::vector<std::string> plans() { return plansIn(database); }

    std::vector<std::string> linesWith(const std::string& text) const {
        std::vector<std::string> found;
        for (const std::string& line : log.lines())
            if (line.find(text) != std::string::npos)
                found.push_back(line);
        return found;
    }

    const TemporaryDirectory directory;
    const std::string path = directory.path("db");
    ShakyDisk disk;
    fakes::CapturedLog log;
    velta::net::EventDispatcher dispatcher;
    Clock::time_point now{std::chrono::hours(1)};
    Clock::duration tick{0}; // passes with each look at the clock
    store::Database database{schemaOf(sharedTables), path};
    test::FakeOvsdb held{{{"Devices", {{"Token", 0}, {"Done", 0}, {"Probe", 0}}},
                          {"Plans", {{"Id", 0}, {"Name", ""}, {"Start", ""}}},
                          {"Globals", {{"Always", 0}}},
                          {"Cluster", {{"SeededBy", ""}}}}};
    MemberScript member{directory.path("member"), [this] { round(); }};
    bool applies = true; // no transaction is open
    std::vector<velta::NameList> changed;
    Json lastOperations;
    std::optional<Cluster> cluster;
};
