#pragma once

#include "cfg/iconfigclient.h"
#include "log.h"

#include <map>
#include <string>

namespace orv::horad {

// What a row of a service table says of its service. The numbers stand in log lines.
enum class ServiceState {
    Unknown = 0, // no row seen yet
    Idle = 1,
    Running = 2,
    Succeeded = 3,
    Failed = 4,
};

// The cells of a service row that tell of its state. Any other status is that of a service on its way.
enum ServiceStatus { ServiceIdle = 0, ServiceStarted = 1, ServiceDone = 5 };

ServiceState stateOfService(int status, int result);

// The states of services as they were last seen, by table and row.
class ServiceStates {
public:
    explicit ServiceStates(Log log) : log_(log) {}

    // Unknown where there was none. The place of a state stays as it is until its table is loaded again.
    const ServiceState& get(const std::string& table, int id) { return states_[table][id]; }
    void update(const std::string& table, int id, ServiceState state) { states_[table][id] = state; }

    // Takes over the states of the table's rows, and forgets those whose row is gone. A row without a status
    // or a result keeps the state that it had. False where the table can't be read: nothing is forgotten
    // then.
    [[nodiscard]] bool load(cfg::common::IConfigClient& client, const std::string& table);

private:
    void take(const std::string& table, int id, const velta::ValueList& row);

    Log log_;
    std::map<std::string, std::map<int, ServiceState>> states_;
};

} // namespace orv::horad
