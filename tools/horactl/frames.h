#pragma once

#include "handlers/servicestates.h"
#include "handlers/timeframereader.h"
#include "orv/system.h"
#include "simulation/tables.h"
#include "timeplan/timeframe.h"

#include <ctime>
#include <optional>

namespace tools::horactl {

// The time frames as a horad reads them that has started with this repeat delay, in seconds, 0 for its
// default. They go by the system's clock. Nothing is logged, unless a Forecast lives, which takes all lines.
orv::horad::Timeframes readFrames(orv::simulation::Tables& tables, unsigned repeatDelay, orv::System& system);

// Since the epoch.
std::time_t secondsOf(orv::horad::Timeframe::TimePoint moment);

// The state of a service, by its row; nothing where there is no row.
std::optional<orv::horad::ServiceState> stateIn(const velta::ValueList* serviceRow);

// "idle", "running" and so on.
const char* nameOf(orv::horad::ServiceState state);

} // namespace tools::horactl
