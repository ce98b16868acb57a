#pragma once

#include "sim/oraclewatch.h"

#include <cstddef>
#include <cstdint>

namespace sim {

// Whether horad stays calm: commits and iterations an hour, and memory.
class BoundsWatch {
public:
    explicit BoundsWatch(Watch& watch) : watch_(watch) {}

    // What gives reasons for commits, counted since the oracle was made, but for the rows.
    struct Reasons {
        std::size_t rows = 0;    // of all tables of plans
        std::uint64_t edges = 0; // statuses that turned over
        std::uint64_t runs = 0;  // of services
        bool rowsFight = false;  // they write to each other at each pass
    };

    void committed() { ++commits_; }
    void passed(const Reasons& reasons);
    // Horad begins anew: it reads everything, and may have to put everything right.
    void rebooted() { ++disturbances_; }

private:
    using Microseconds = orv::simulation::Machine::Microseconds;

    void beginHour(const Reasons& reasons);
    void judgeHour(const Reasons& reasons);
    void sampleMemory();

    Watch& watch_;
    Microseconds hourEnds_ = 0; // of the time that passes
    std::uint64_t commits_ = 0; // in this hour, as all that follows
    std::uint64_t passes_ = 0;
    std::uint64_t disturbances_ = 0;
    std::uint64_t fights_ = 0; // passes in which rows fought
    std::size_t mostRows_ = 0;
    std::uint64_t edgesBefore_ = 0;
    std::uint64_t runsBefore_ = 0;

    Microseconds nextSample_ = 0;
    unsigned samples_ = 0;
    std::size_t mostAtFirst_ = 0; // bytes in use, of the first samples
};

} // namespace sim
