#pragma once

#include "tools/horactl/forecast.h"

#include <ctime>
#include <functional>
#include <string>
#include <vector>

namespace tools::horactl {

// Something that an owner would notice.
struct Event {
    enum class What { Wlan, Status, Service, Reboot, Clock };

    std::time_t time;
    What what;
    std::string to;                // the new value; of the clock the new offset from UTC, "+0200"
    std::vector<std::string> rows; // that decide: "WlanTimePlans.2"; none for the clock
    std::string why;               // for a person
};

// "wlan", "status" and so on.
const char* nameOf(Event::What what);

// Takes the events out of a forecast's commits, in the order in which they are written.
class EventReader {
public:
    // The forecast outlives the reader, which is told of its commits as long as it lives.
    EventReader(Forecast& forecast, std::function<void(Event)> take);
    ~EventReader() { forecast_.onCommit({}); }
    EventReader(const EventReader&) = delete;
    EventReader& operator=(const EventReader&) = delete;

private:
    void read(std::time_t time, const Forecast::Changes& changes);
    void readOne(std::time_t time, const orv::simulation::Tables::Change& change,
                 const Forecast::Changes& changes);

    Forecast& forecast_;
    std::function<void(Event)> take_;
};

// Where the zone's offset from UTC changes, behind `from` and not behind `to`.
std::vector<Event> clockChanges(std::time_t from, std::time_t to);

// The next events of a forecast that has not run yet, up to a moment, in order; no more than so many.
std::vector<Event> nextEvents(Forecast& forecast, std::time_t from, std::time_t to, std::size_t most);

} // namespace tools::horactl
