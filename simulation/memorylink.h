#pragma once

#include "cfg/deliveries.h"
#include "horad.h"
#include "simulation/machine.h"
#include "simulation/tables.h"

#include <functional>
#include <optional>
#include <set>
#include <string>

namespace orv::simulation {

// The loop's link to tables in memory: notices, deliveries and the rules of a connection that is lost and
// comes back are those of the real client, time is the machine's.
class MemoryLink : public horad::StoreLink {
public:
    using EResultCode = velta::protocol::EResultCode;

    // Both outlive the link, which takes the tables' onFault() for itself.
    MemoryLink(Machine& machine, Tables& tables);
    ~MemoryLink() override;
    MemoryLink(const MemoryLink&) = delete;
    MemoryLink& operator=(const MemoryLink&) = delete;

    // Before the first connect(). Not owned.
    void add(cfg::IConfigHandler* handler) { deliveries_.add(handler); }
    // As the first connection is made: the handlers read everything. False where nobody can be reached.
    bool initialize();

    // The connection is lost. Until the store can be reached again, nothing works.
    void lose();
    // Whether the store can be connected to. True at first.
    void setReachable(bool reachable) { reachable_ = reachable; }
    // Single operations that fail, while the connection lives. See Tables.
    void onFault(Tables::Fault fault) { fault_ = std::move(fault); }
    // Told of each operation, and whether it reaches the tables: what fault or lack of a connection made of
    // it.
    using Listener = std::function<void(Tables::Operation, const std::string& table, const EResultCode&)>;
    void onOperation(Listener listener) { onOperation_ = std::move(listener); }

    void wait(unsigned milliseconds) override;
    void deliver() override;
    void pass(const std::function<void(cfg::common::IConfigClient&)>& run) override { deliveries_.pass(run); }
    cfg::common::IConfigClient& client() override { return deliveries_.client(); }

private:
    bool connect();
    EResultCode resultBeforeOperation(Tables::Operation operation, const std::string& table);
    EResultCode beforeTransaction();
    bool areRowsOutdated() const;

    Machine& machine_;
    Tables& tables_;
    cfg::Deliveries deliveries_;
    std::set<std::string> subscribed_; // the tables of which the store would tell
    Tables::Fault fault_;
    Listener onOperation_;
    bool reachable_ = true;
    bool connected_ = false;
    bool lostWhileWaiting_ = false;
    bool initialized_ = false;
    std::optional<Machine::Microseconds> connectedAgainAt_; // of the time that passed
};

} // namespace orv::simulation
