#include "timeplan/timeplan.h"

namespace orv::horad {

namespace {

constexpr const char* dayNames[WeekSlots::days] = {"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"};

} // namespace

TimePlan::TimePlan(int id, const std::string& name, bool status) : id_(id), name_(name), status_(status) {}

bool TimePlan::isInTimeslot(long seconds) const {
    const std::optional<LocalMoment> moment = LocalMoment::at(seconds);
    return moment && isInTimeslot(*moment);
}

bool TimePlan::isInTimeslot(const LocalMoment& moment) const {
    constexpr std::size_t back = WeekSlots::days - 1; // one day back in a week
    const std::size_t today = (static_cast<std::size_t>(moment.weekDay()) + back) % WeekSlots::days;
    const Slot slot = week_.day(today);
    const Slot dayBefore = week_.day((today + back) % WeekSlots::days);
    const TimePlanTime& now = moment.time();
    const bool carriedOver = dayBefore.isSet() && dayBefore.runsPastMidnight() && now <= dayBefore.stop;
    const bool reached = slot.isSet() && slot.start <= now && (slot.runsPastMidnight() || now <= slot.stop);
    return reached || carriedOver;
}

void TimePlan::clear() {
    week_ = WeekSlots();
    populated_ = false;
}

bool TimePlan::operator==(const TimePlan& other) const {
    return id_ == other.id_ && name_ == other.name_ && status_ == other.status_ && marked_ == other.marked_ &&
           week_ == other.week_;
}

std::ostream& operator<<(std::ostream& os, const TimePlan& plan) {
    os << "Id: " << plan.id_ << std::endl;
    os << "Name: " << plan.name_ << std::endl;
    os << "Status: " << plan.status_ << std::endl;
    for (std::size_t day = 0; day < WeekSlots::days; ++day) {
        os << dayNames[day] << ": ";
        const Slot slot = plan.week_.day(day);
        slot.start.put(os) << " - ";
        slot.stop.put(os) << std::endl;
    }
    return os;
}

} // namespace orv::horad
