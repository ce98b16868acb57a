#pragma once

#include "simulation/machine.h"
#include "simulation/tables.h"

#include <cstdint>
#include <list>
#include <string>

namespace sim {

// What the oracle may look at: the household as it is, not what horad knows of it.
struct View {
    const orv::simulation::Tables& tables;
    orv::simulation::Machine& machine;
    const std::list<std::string>& planTables; // that horad was told to keep, with -t
    unsigned repeatInterval;                  // seconds between two runs of a service
    // The line as the probes find it now.
    bool call = false;
    bool stream = false;
    // Whole iterations of horad's loop since the last fault or disturbance was over, see Household.
    unsigned passesSinceFault = 0;
    // The same, where somebody else's commits are no disturbance.
    unsigned passesSinceTrouble = 0;
    // Operations of horad that failed so far, by a fault or for want of a connection.
    std::uint64_t failedOperations = 0;
    // Those of them that were updates of a row: horad takes them for done.
    std::uint64_t refusedUpdates = 0;
};

} // namespace sim
