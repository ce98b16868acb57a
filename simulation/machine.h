#pragma once

#include "orv/system.h"

#include <cstdint>
#include <functional>
#include <map>

namespace orv::simulation {

// A machine whose time passes only when somebody waits for it. What happens meanwhile is put on its
// timetable.
//
// It knows two times: the time that passes, which nobody can set, and the clock, which can be wrong. Both are
// microseconds; the clock counts from the epoch.
class Machine : public System {
public:
    using Microseconds = std::int64_t;
    using Event = std::function<void()>;

    static constexpr Microseconds second = 1'000'000;

    // It has just been started, and its clock shows that moment.
    explicit Machine(Microseconds clock) : clockAhead_(clock) {}

    std::time_t time() override { return static_cast<std::time_t>(now() / second); }
    std::int64_t now() override { return passed_ + clockAhead_; }
    unsigned uptime() override { return static_cast<unsigned>((passed_ - startedAt_) / second); }
    void sleep(unsigned microseconds) override { passUntil(passed_ + microseconds); }

    // The time that passed since this object was made.
    Microseconds passed() const { return passed_; }
    // Lets time pass up to that moment of it, and happen what is due until then, in order.
    void passUntil(Microseconds moment);
    // The same, up to the next event, or to the moment where there is none before it.
    void passUntilNextEvent(Microseconds moment);

    // Happens once that much time has passed since this object was made; what is due already happens next.
    // Events of the same moment happen in the order in which they came.
    void at(Microseconds moment, Event event) { timetable_.emplace(moment, std::move(event)); }
    void after(Microseconds span, Event event) { at(passed_ + span, std::move(event)); }

    void setClock(Microseconds clock) { clockAhead_ = clock - passed_; }
    // Its uptime begins anew.
    void restart() { setUptime(0); }
    // It was started so many seconds ago.
    void setUptime(unsigned seconds) { startedAt_ = passed_ - seconds * second; }

private:
    Microseconds passed_ = 0;
    Microseconds startedAt_ = 0;
    Microseconds clockAhead_;
    std::multimap<Microseconds, Event> timetable_;
};

} // namespace orv::simulation
