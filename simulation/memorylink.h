#pragma once

#include "cfg/deliveries.h"
#include "horad.h"
#include "simulation/machine.h"
#include "simulation/tables.h"

#include <functional>
#include <optional>
#include <string>

namespace orv::simulation {

// The loop's link to tables in memory: notices, deliveries and the rules of a connection that is lost and
// comes back are those of the real client, time is the machine's.
class MemoryLink : public horad::StoreLink {
public:
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
    // Told when a connection was made.
    void onConnect(std::function<void()> handler) { onConnect_ = std::move(handler); }

    void wait(unsigned milliseconds) override;
    void deliver() override;
    void pass(const std::function<void(cfg::common::IConfigClient&)>& run) override { deliveries_.pass(run); }
    cfg::common::IConfigClient& client() override { return deliveries_.client(); }

private:
    using EResultCode = velta::protocol::EResultCode;

    bool connect();
    EResultCode beforeOperation(Tables::Operation operation, const std::string& table);
    EResultCode beforeTransaction();
    bool areRowsOutdated() const;

    Machine& machine_;
    Tables& tables_;
    cfg::Deliveries deliveries_;
    Tables::Fault fault_;
    std::function<void()> onConnect_;
    bool reachable_ = true;
    bool connected_ = false;
    bool initialized_ = false;
    std::optional<Machine::Microseconds> connectedAgainAt_; // of the time that passed
};

} // namespace orv::simulation
