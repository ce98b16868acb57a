#include "handlers/servicestates.h"

#include "handlers/dbm.h"

namespace orv::horad {

using cfg::common::IConfigClient;
using velta::ValueList;
using velta::protocol::EResultCode;

namespace {

const char* presence(bool present) {
    return present ? "OK" : "Missing";
}

} // namespace

ServiceState stateOfService(int status, int result) {
    switch (status) {
    case ServiceIdle:
        return ServiceState::Idle;
    case ServiceDone:
        return result == 0 ? ServiceState::Succeeded : ServiceState::Failed;
    default:
        return ServiceState::Running;
    }
}

bool ServiceStates::load(IConfigClient& client, const std::string& table) {
    unsigned rows = 0;
    const EResultCode sized = client.size(table, rows);
    if (!sized.ok()) {
        log_.error("size() failed: %s", sized.strerror().c_str());
        return false;
    }
    log_.debug("Load service states from %s (size=%zu)", table.c_str(), std::size_t{rows});
    std::map<int, ServiceState> seen;
    for (unsigned i = 0; i < rows; ++i) {
        ValueList row;
        const EResultCode selected = client.selectRow(table, i, row, velta::NameList());
        if (!selected.ok()) {
            log_.error("selectRow() failed: %s", selected.strerror().c_str());
            return false;
        }
        const int id = row.getValue(dbm::Id).getInteger();
        take(table, id, row);
        seen[id] = get(table, id);
    }
    states_[table].swap(seen);
    return true;
}

void ServiceStates::take(const std::string& table, int id, const ValueList& row) {
    const bool hasStatus = row.hasValue(dbm::Service_Status);
    const bool hasResult = row.hasValue(dbm::Service_Result);
    if (!hasStatus || !hasResult) {
        log_.warning("Missing columns Status:%s; Result:%s", presence(hasStatus), presence(hasResult));
        return;
    }
    const ServiceState known = get(table, id);
    const ServiceState state = stateOfService(row.getValue(dbm::Service_Status).getInteger(),
                                              row.getValue(dbm::Service_Result).getInteger());
    if (state == known)
        return;
    log_.debug("updateServiceState %s   %d -> %d", table.c_str(), static_cast<int>(known),
               static_cast<int>(state));
    update(table, id, state);
}

} // namespace orv::horad
