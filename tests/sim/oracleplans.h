#pragma once

#include "sim/oraclecalendar.h"
#include "sim/oraclewatch.h"

#include <cstdint>
#include <ctime>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace sim {

// Whether the statuses are what the plans say, and the WLAN what the rules make of them.
class PlanWatch {
public:
    explicit PlanWatch(Watch& watch);

    // Statuses whose expectation turned over: each needs a commit.
    std::uint64_t edges() const { return edges_; }
    // Rows of all tables of plans.
    std::size_t rows() const;
    // Whether rows write to each other (C1): that never comes to rest.
    bool rowsFight() const { return fight_; }

    void passed();

private:
    struct PlanRow {
        int id = 0;
        bool activate = false;
        bool status = false;
        WeekPlan week;
        bool inside = false;
        std::uint64_t turns = 0; // the seconds of this minute at which it may say something else, a bit each

        bool wanted() const { return inside == activate; }
    };

    struct PlanTable {
        std::string name;
        std::optional<std::uint64_t> version; // none before the first look
        std::vector<PlanRow> rows;
        bool plain = true; // each row is written by itself, and by nobody else
        // Rows whose update may have been refused, and the iteration in which horad has read the table again.
        std::set<int> doubted;
        std::optional<std::uint64_t> doubtEnds;
    };

    bool look();
    void read(PlanTable& table);
    bool ask();
    bool askAgain(PlanRow& row, const WallTime& now);
    void judge(PlanTable& table);
    void judgeStrangeIds(PlanTable& table);
    void doubt();
    void endDoubt();
    std::string expectation(const PlanTable& table, const PlanRow& row) const;
    std::optional<bool> wantedWlan() const;
    void judgeWlan();

    Watch& watch_;
    std::vector<PlanTable> tables_;
    std::uint64_t version_ = 0; // of all tables, when they were looked at last
    bool looked_ = false;
    std::time_t minute_ = -1; // the beginning of the one in which they were asked last
    int second_ = 0;          // of that minute
    std::uint64_t refusedUpdates_ = 0;
    bool judged_ = false; // since something changed
    bool fight_ = false;
    std::uint64_t edges_ = 0;
    std::optional<bool> wanted_; // of the WLAN, by the rows as they stand
    std::optional<bool> wantedBefore_;
};

} // namespace sim
