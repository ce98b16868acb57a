#include "cfg/iconfighandler.h"
#include "simulation/memorylink.h"

#include <list>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using orv::cfg::IConfigHandler;
using orv::cfg::common::IConfigClient;
using orv::simulation::Machine;
using orv::simulation::MemoryLink;
using orv::simulation::Tables;
using velta::Value;
using velta::ValueList;
using velta::protocol::EResultCode;
namespace code = velta::protocol::code;

constexpr Machine::Microseconds second = Machine::second;
constexpr unsigned iteration = 2000; // milliseconds

Tables::Rows settings(int number) {
    Value value(Value::Integer);
    value.setInteger(number);
    ValueList row;
    row.add("Number", value);
    return {row};
}

// Reads its table, and tells what it was told.
class Reader : public IConfigHandler {
public:
    void getTables(std::list<std::string>& tables) override { tables.emplace_back("Settings"); }
    bool configChanged(IConfigClient& client, const std::string& table) override {
        told.push_back(table);
        ValueList row;
        if (client.selectRow("Settings", 0, row, {}).ok())
            number = row.getValue("Number").getInteger();
        return true;
    }
    void process(IConfigClient&) override { ++actions; }

    std::vector<std::string> told;
    int number = 0;
    int actions = 0;
};

class MemoryLinkTest : public testing::Test {
protected:
    MemoryLinkTest() {
        tables.edit("Settings", settings(1));
        link.add(&reader);
    }

    void connected() {
        ASSERT_TRUE(link.initialize());
        reader.told.clear();
    }

    Machine machine{1000 * second};
    Tables tables;
    MemoryLink link{machine, tables};
    Reader reader;
};

TEST_F(MemoryLinkTest, TheFirstConnectionReadsEverythingAndActs) {
    ASSERT_TRUE(link.initialize());
    EXPECT_EQ(reader.told, (std::vector<std::string>{""}));
    EXPECT_EQ(reader.number, 1);
    EXPECT_EQ(reader.actions, 1);
}

TEST_F(MemoryLinkTest, AStoreThatCanNotBeReachedIsNoConnection) {
    link.setReachable(false);
    EXPECT_FALSE(link.initialize());
    EXPECT_TRUE(reader.told.empty());
    EXPECT_EQ(link.client().startTransaction().code(), code::notConnected);
    link.setReachable(true);
    EXPECT_TRUE(link.initialize());
}

TEST_F(MemoryLinkTest, AConnectionLostWhileItIsMadeIsMadeAgainAsTheFirst) {
    link.onFault([this](Tables::Operation, const std::string&) {
        link.lose();
        return EResultCode(code::notConnected);
    });
    EXPECT_FALSE(link.initialize());
    link.onFault(nullptr);
    EXPECT_EQ(link.client().startTransaction().code(), code::notConnected);
    EXPECT_TRUE(link.initialize());
    EXPECT_TRUE(link.client().startTransaction().ok()); // a first connection has no rows that are outdated
}

TEST_F(MemoryLinkTest, AWaitEndsWithTheFirstChange) {
    connected();
    machine.after(500'000, [this] { tables.edit("Settings", settings(2)); });
    link.wait(iteration);
    EXPECT_EQ(machine.passed(), 500'000);
    link.deliver();
    EXPECT_EQ(reader.told, (std::vector<std::string>{"Settings"}));
    EXPECT_EQ(reader.number, 2);
    link.wait(iteration);
    EXPECT_EQ(machine.passed(), 2'500'000);
}

TEST_F(MemoryLinkTest, AChangeThatCameBeforeTheWaitEndsItAtOnce) {
    connected();
    tables.edit("Settings", settings(2));
    link.wait(iteration);
    EXPECT_EQ(machine.passed(), 0);
}

TEST_F(MemoryLinkTest, AChangeOfATableThatNobodyFollowsEndsNoWait) {
    connected();
    tables.edit("Elsewhere", settings(2));
    link.wait(iteration);
    EXPECT_EQ(machine.passed(), 2 * second);
    link.deliver();
    EXPECT_TRUE(reader.told.empty());
}

TEST_F(MemoryLinkTest, ALostConnectionEndsTheWaitOnceAndNothingWorks) {
    connected();
    link.setReachable(false);
    machine.after(500'000, [this] { link.lose(); });
    link.wait(iteration);
    EXPECT_EQ(machine.passed(), 500'000);
    link.deliver();
    link.wait(iteration);
    EXPECT_EQ(machine.passed(), 2'500'000);
    unsigned rows = 0;
    EXPECT_EQ(link.client().size("Settings", rows).code(), code::notConnected);
    EXPECT_EQ(link.client().startTransaction().code(), code::notConnected);
    EXPECT_TRUE(reader.told.empty());
}

TEST_F(MemoryLinkTest, WhatChangedWithoutAConnectionIsReadWithEverything) {
    connected();
    link.lose();
    tables.edit("Settings", settings(2));
    link.deliver();
    EXPECT_EQ(reader.told, (std::vector<std::string>{""}));
    EXPECT_EQ(reader.number, 2);
    link.wait(iteration);
    EXPECT_EQ(machine.passed(), 2 * second); // no notice of it is left
}

TEST_F(MemoryLinkTest, ATransactionBringsTheConnectionBackButHasToWaitForTheReading) {
    connected();
    link.lose();
    EXPECT_EQ(link.client().startTransaction().code(), code::outdated);
    EXPECT_FALSE(tables.isTransactionOpen());
    machine.sleep(1'000'000);
    EXPECT_TRUE(link.client().startTransaction().ok());
}

TEST_F(MemoryLinkTest, TheReadingLetsATransactionStart) {
    connected();
    link.lose();
    link.deliver();
    EXPECT_TRUE(link.client().startTransaction().ok());
}

TEST_F(MemoryLinkTest, AFaultIsTheResultOfTheOperation) {
    connected();
    link.onFault([](Tables::Operation operation, const std::string&) {
        return operation == Tables::Operation::Start ? EResultCode(code::busy) : EResultCode();
    });
    unsigned rows = 0;
    EXPECT_TRUE(link.client().size("Settings", rows).ok());
    EXPECT_EQ(link.client().startTransaction().code(), code::busy);
}

TEST_F(MemoryLinkTest, EachOperationIsToldWithWhatCameOfIt) {
    connected();
    std::vector<int> results;
    link.onOperation([&results](Tables::Operation, const std::string&, const EResultCode& result) {
        results.push_back(result.code());
    });
    ASSERT_TRUE(link.client().startTransaction().ok());
    link.onFault([](Tables::Operation, const std::string&) { return EResultCode(code::storageFull); });
    EXPECT_FALSE(link.client().closeTransaction().ok());
    link.setReachable(false);
    link.lose();
    EXPECT_FALSE(link.client().startTransaction().ok());
    EXPECT_EQ(results, (std::vector<int>{code::success, code::storageFull, code::notConnected}));
}

} // namespace
