#pragma once

#include "sim/oraclebounds.h"
#include "sim/oracleplans.h"
#include "sim/oraclereboot.h"
#include "sim/oracleservices.h"
#include "sim/oraclewatch.h"
#include "sim/view.h"

#include <optional>
#include <string>

namespace sim {

// Says what horad must do, beside horad: it shares no code with the daemon that knows of time. What is kept
// although an owner would call it wrong is named by its number in doc/compatibility.md.
class Oracle {
public:
    using Changes = orv::simulation::Tables::Changes;

    // The view outlives it.
    explicit Oracle(const View& view);
    Oracle(const Oracle&) = delete;
    Oracle& operator=(const Oracle&) = delete;

    // At each commit of horad, with the cells that it changed.
    void committed(const Changes& changes);
    // After each iteration of horad's loop.
    void passed();
    // A new horad begins, which knows nothing of what was. Before its first commit.
    void rebooted();

    // The first one: the local time, what was expected, and what is.
    const std::optional<std::string>& violation() const { return watch_.violation(); }

private:
    void judgeCell(const orv::simulation::Tables::Change& change);

    Watch watch_;
    PlanWatch plans_;
    ServiceWatch services_;
    RebootWatch reboot_;
    BoundsWatch bounds_;
};

} // namespace sim
