#include "tools/horactl/frames.h"

#include "handlers/dbm.h"
#include "log.h"
#include "orv/sysloglevel.h"

#include <chrono>

namespace tools::horactl {

namespace dbm = orv::horad::dbm;
using orv::horad::ServiceState;
using orv::horad::Timeframes;

Timeframes readFrames(orv::simulation::Tables& tables, unsigned repeatDelay, orv::System& system) {
    constexpr const char* module = "horactlframes"; // of its own, since it is switched off
    const orv::horad::Log log(module, "frames");
    ORV_Sysloglevel_changeTracelevel(module, 0);
    const int interval = orv::horad::repeatIntervalOf(repeatDelay);
    return orv::horad::TimeframeReader(tables, log, interval, system).read().value_or(Timeframes());
}

std::time_t secondsOf(orv::horad::Timeframe::TimePoint moment) {
    return static_cast<std::time_t>(
        std::chrono::duration_cast<std::chrono::seconds>(moment.time_since_epoch()).count());
}

std::optional<ServiceState> stateIn(const velta::ValueList* serviceRow) {
    if (serviceRow == nullptr)
        return std::nullopt;
    return orv::horad::stateOfService(serviceRow->getValue(dbm::Service_Status).getInteger(),
                                      serviceRow->getValue(dbm::Service_Result).getInteger());
}

const char* nameOf(ServiceState state) {
    switch (state) {
    case ServiceState::Unknown:
        return "unknown";
    case ServiceState::Idle:
        return "idle";
    case ServiceState::Running:
        return "running";
    case ServiceState::Succeeded:
        return "succeeded";
    case ServiceState::Failed:
        return "failed";
    }
    return "";
}

} // namespace tools::horactl
