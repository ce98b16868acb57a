#pragma once

#include <cstdint>
#include <ctime>
#include <string>

// Times and durations as a person types them. What can't be read throws WrongUse, with the text, what is
// wrong with it, and what would do.
namespace tools::horactl {

struct ParsedTime {
    std::time_t moment;
    std::string note; // one line for the person, where clocks show the time twice; empty otherwise
};

// A TIME in the process's zone:
//
//   2026-11-29 02:30[:00]  also with a T between; with an offset behind it (2026-11-29T02:30:00+0100), as
//   JSON
//                          has it, it is that moment in every zone
//   Tue 23:00[:00]         the next one that is later than the present
//   23:00[:00]             the same, on any day
//   +3h                    a DURATION later than the present
//   @1795303800            seconds since the epoch
//
// A time that the zone leaves out is refused with what lies on both sides of it. One that comes twice is the
// first of the two (that is still to come), and the note says so. All are from 1970 to 9999.
ParsedTime parseTime(const std::string& text, std::time_t present);

// A DURATION in seconds: 90s, 45min, 3h, 14d, or several of them with the largest first, as 1h30min. Up to
// 100 years.
std::int64_t parseDuration(const std::string& text);

// A DURATION with its direction: +2h, -30min.
std::int64_t parseStep(const std::string& text);

struct ParsedSpan {
    ParsedTime from;
    ParsedTime to;
};

// FROM..TO. TO counts from FROM: it is the next 23:00 after it, or +30min from it. It has to be later.
ParsedSpan parseSpan(const std::string& text, std::time_t present);

} // namespace tools::horactl
