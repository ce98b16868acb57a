#pragma once

#include "store/cluster/clusterschema.h"
#include "support/rawmember.h"

#include <functional>
#include <string>

#include <gtest/gtest.h>

// What a member is asked by a device that begins to follow it, and what it answers. `round` lets the device
// read what was sent.
class MemberScript {
public:
    using Json = store::Json;

    MemberScript(const std::string& path, std::function<void()> round)
        : member_(path), round_(std::move(round)) {}

    RawMember& raw() { return member_; }

    // Answers the next message, which is a call of that method; returns its parameters.
    Json answer(const std::string& method, const Json& result, const Json& error = nullptr) {
        const Json call = receive(method);
        member_.answer(call["id"], result, error);
        round_();
        return call["params"];
    }
    // The next message, which is a call of that method.
    Json receive(const std::string& method) {
        Json call = member_.receive();
        EXPECT_EQ(call["method"], method) << call.dump();
        return call;
    }

    // Takes the next connection, up to the question for the schema.
    void accept() {
        member_.accept();
        round_();
        EXPECT_EQ(answer("set_db_change_aware", Json::object()), Json::array({true}));
    }
    // Up to the question what the tables hold.
    void acceptWith(const store::Schema& schema, const Json& server) {
        accept();
        answer("get_schema", clusterSchemaOf(schema));
        answer("monitor_cond", serverRow("initial", server));
    }
    // Returns what was asked for: [database, monitor, tables, last transaction].
    Json tellTables(bool found, const std::string& transaction, const Json& tables) {
        return answer("monitor_cond_since", Json::array({found, transaction, tables}));
    }

    void tellServer(const std::string& kind, const Json& cells) {
        notify("update2", Json::array({"server", serverRow(kind, cells)}));
    }
    void tellChange(const std::string& transaction, const Json& tables) {
        notify("update3", Json::array({"tables", transaction, tables}));
    }
    void notify(const std::string& method, const Json& params) {
        member_.send({{"id", nullptr}, {"method", method}, {"params", params}});
        round_();
    }
    void disconnect() {
        member_.disconnect();
        round_();
    }

    static Json serverRow(const std::string& kind, const Json& cells) {
        return {{"Database", {{"row", {{kind, cells}}}}}};
    }

private:
    RawMember member_;
    std::function<void()> round_;
};
