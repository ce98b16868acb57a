#pragma once

#include "sim/oraclecalendar.h"
#include "sim/oracleuserplan.h"
#include "sim/oraclewatch.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace sim {

// Whether services start when they may and only then, and are counted.
class ServiceWatch {
public:
    using Changes = orv::simulation::Tables::Changes;

    explicit ServiceWatch(Watch& watch) : watch_(watch), plan_(watch) {}

    // Runs that were counted so far.
    std::uint64_t runs() const { return runs_; }

    void committed(const Changes& changes);
    void passed();
    void rebooted();

private:
    using Microseconds = orv::simulation::Machine::Microseconds;
    using Service = std::pair<std::string, int>; // its table and its row

    // What horad knows of a row of "TimeFrame": it keeps it until the span, the mode, the message or the
    // limit changes (C11).
    struct Frame {
        std::uint32_t start = 0; // seconds since the epoch
        std::uint32_t end = 0;
        int mode = 0;
        std::string message;
        int limit = 0;              // -1 for none
        std::set<Service> services; // one of them is what it starts: a new one is not noticed
        std::uint32_t counter = 0;
        bool counterIsDoubted = false;         // horad may have read another one
        bool isNew = true;                     // since this iteration
        bool isFresh = true;                   // it was not there when all was quiet last
        std::int64_t runs = 0;                 // since it was read, or may have been read anew
        Microseconds latestClock = 0;          // that horad has seen while it knew the frame
        std::optional<Microseconds> runsUntil; // the clock's moment at which it must have run once more
        bool isGone = false;                   // its row is, but horad may not have noticed

        bool isSameAs(const Frame& other) const;
    };

    // As it was before a commit changed its status.
    struct ServiceRow {
        bool exists = false;
        bool isComplete = false;
        int status = 0;
        int result = 0;

        bool canStart() const { return status == 0 || (status == 5 && result != 0); }
    };

    void look();
    void readFrames();
    static Frame frameFrom(const velta::ValueList& row);
    ServiceRow before(const Service& service, const Changes& changes) const;
    Service serviceOfRow(int id) const;

    void counted(int id, const Changes& changes, const orv::simulation::Tables::Change& change);
    void judgeRun(int id, const Frame& frame, std::uint32_t counter, const Changes& changes);
    std::optional<std::string> reasonAgainst(const Frame& frame, const Changes& changes) const;
    std::optional<std::string> lineAgainst(const Frame& frame) const;
    void judgeStarts(const std::set<int>& counted, const Changes& changes);
    void judgeStatus(const orv::simulation::Tables::Change& change, const std::set<int>& counted);
    bool isDue(int id, const Frame& frame) const;
    void settle(Frame& frame);
    void judgeLateness(int id, Frame& frame);
    void judgeDaemon();

    Watch& watch_;
    std::uint64_t version_ = 0;
    bool looked_ = false;
    std::uint64_t frameVersion_ = 0;
    std::uint64_t serviceVersion_ = 0;
    std::map<int, Frame> frames_;
    UserPlanWatch plan_;
    std::uint64_t runs_ = 0;
    // Whether horad has enabled the service daemon since it began, or somebody else has set it since.
    bool daemonWasSet_ = false;
    std::uint64_t daemonVersion_ = 0;
};

} // namespace sim
