#pragma once

#include "timeplan/localmoment.h"
#include "timeplan/timeplantime.h"
#include "timeplan/weekslots.h"

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>

namespace orv::horad {

// A weekly plan: for each weekday a slot from a start to a stop, both inclusive, in local time.
//
// A day whose start and stop are both 00:00:00 has no slot. A slot whose stop is not after its start runs
// past midnight: from the start to the end of the day, and on the next day up to and including the stop. So a
// start without a stop covers the rest of its day and the next day's first second.
class TimePlan {
public:
    TimePlan(int id, const std::string& name, bool status);

    int id() const { return id_; }
    const std::string& name() const { return name_; }
    bool status() const { return status_; }
    void setStatus(bool status) { status_ = status; }
    // The user of the class decides what the mark means. True at first.
    bool marked() const { return marked_; }
    void setMarked(bool marked) { marked_ = marked; }
    // True at first, false after clear(). Takes no part in comparisons.
    bool populated() const { return populated_; }
    void setPopulated(bool populated) { populated_ = populated; }

    // Days count from Monday, which is 0.
    void setDay(std::size_t day, const TimePlanTime& start, const TimePlanTime& stop) {
        week_.setDay(day, Slot{start, stop});
    }
    void setMon(const TimePlanTime& start, const TimePlanTime& stop) { setDay(0, start, stop); }
    void setTue(const TimePlanTime& start, const TimePlanTime& stop) { setDay(1, start, stop); }
    void setWed(const TimePlanTime& start, const TimePlanTime& stop) { setDay(2, start, stop); }
    void setThu(const TimePlanTime& start, const TimePlanTime& stop) { setDay(3, start, stop); }
    void setFri(const TimePlanTime& start, const TimePlanTime& stop) { setDay(4, start, stop); }
    void setSat(const TimePlanTime& start, const TimePlanTime& stop) { setDay(5, start, stop); }
    void setSun(const TimePlanTime& start, const TimePlanTime& stop) { setDay(6, start, stop); }

    // `seconds` since the epoch. False where the C library can't convert it.
    bool isInTimeslot(long seconds) const;
    bool isInTimeslot(const LocalMoment& moment) const;

    // Takes all slots away and the populated flag with them; id, name, status and mark stay.
    void clear();

    bool operator==(const TimePlan& other) const;
    bool operator!=(const TimePlan& other) const { return !(*this == other); }

    // Ten lines: id, name, status, and the slots from Monday to Sunday.
    friend std::ostream& operator<<(std::ostream& os, const TimePlan& plan);

private:
    std::int32_t id_;
    std::string name_;
    WeekSlots week_;
    bool status_;
    bool marked_ = true;
    bool populated_ = true;
};

} // namespace orv::horad
