#pragma once

#include "tools/horactl/forecast.h"
#include "tools/horactl/household.h"

#include <cstddef>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

namespace tools::horactl {

// Seven days of a household, as values that any picture can be drawn from. Spans lie inside the seven days,
// in order. Texts are printable, and cut where they are long.
struct WeekPicture {
    // A piece in which nothing of it changes.
    struct Wlan {
        Span span;
        bool on;
        std::string by;    // "WlanTimePlans.2", "default" or "AlwaysEnable"
        std::string label; // of a bar: the plan's name, empty where no plan decides
        std::string why;   // for a person
    };
    struct Plan {
        std::string table;
        int id;
        std::string name;       // may be empty
        bool activating;        // its status is 1 inside its slots, otherwise outside them
        std::vector<Span> open; // its slots
    };
    // Slots of the same table that are open together for a minute or longer: two that only touch do not
    // count.
    struct Overlap {
        Span span;
        std::string table;
        std::size_t count;              // of the plans
        std::vector<std::size_t> plans; // the first few of them, as places in `plans`
    };
    struct Frame {
        int id;
        std::string service; // "FileTransfer.1"
        std::string message;
        Span span;
        bool restricted;                 // by the user's time plan
        std::vector<Span> open;          // when that lets it run
        std::vector<std::time_t> starts; // of its service
    };
    struct ClockChange {
        std::time_t at;
        std::string text;  // for a person
        std::string brief; // where there is little room: "clock 1 h back"
    };

    std::vector<Span> days;             // from local midnight to local midnight
    std::optional<std::time_t> present; // where it lies in these days
    std::vector<Wlan> wlan;
    std::vector<Plan> plans; // of all followed tables
    std::vector<Overlap> overlaps;
    std::vector<Frame> frames;
    std::vector<std::time_t> reboots; // to the minute
    std::vector<ClockChange> clockChanges;

    Span span() const { return {days.front().begin, days.back().end}; }
};

// The days begin with that of `from`. A horad lives through them; where the present lies inside, what is in
// front of it is what these tables would have made of plans and WLAN, and starts and reboots are told from
// the present on, under those circumstances. The zone is the process's.
WeekPicture pictureOf(const Household& household, unsigned repeatDelay, std::time_t from, std::time_t now,
                      const Circumstances& circumstances = {});

} // namespace tools::horactl
