#include "timeplan/timeplan.h"

namespace orv::horad {

namespace {

constexpr std::size_t daysAWeek = 7;
constexpr const char* dayNames[daysAWeek] = {"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"};

} // namespace

TimePlan::TimePlan(int id, const std::string& name, bool status) : id_(id), name_(name), status_(status) {}

bool TimePlan::isInTimeslot(long seconds) const {
    const std::optional<LocalMoment> moment = LocalMoment::at(seconds);
    return moment && isInTimeslot(*moment);
}

bool TimePlan::isInTimeslot(const LocalMoment& moment) const {
    const std::size_t today = (static_cast<std::size_t>(moment.weekDay()) + daysAWeek - 1) % daysAWeek;
    const Slot& slot = days_[today];
    const Slot& dayBefore = days_[(today + daysAWeek - 1) % daysAWeek];
    const TimePlanTime& now = moment.time();
    const bool carriedOver = dayBefore.isSet() && dayBefore.runsPastMidnight() && now <= dayBefore.stop;
    const bool reached = slot.isSet() && slot.start <= now && (slot.runsPastMidnight() || now <= slot.stop);
    return reached || carriedOver;
}

void TimePlan::clear() {
    days_.fill(Slot{});
    populated_ = false;
}

bool TimePlan::operator==(const TimePlan& other) const {
    return id_ == other.id_ && name_ == other.name_ && status_ == other.status_ && marked_ == other.marked_ &&
           days_ == other.days_;
}

std::ostream& operator<<(std::ostream& os, const TimePlan& plan) {
    os << "Id: " << plan.id_ << std::endl;
    os << "Name: " << plan.name_ << std::endl;
    os << "Status: " << plan.status_ << std::endl;
    for (std::size_t day = 0; day < daysAWeek; ++day) {
        os << dayNames[day] << ": ";
        plan.days_[day].start.put(os) << " - ";
        plan.days_[day].stop.put(os) << std::endl;
    }
    return os;
}

void TimePlan::setDay(std::size_t day, const TimePlanTime& start, const TimePlanTime& stop) {
    days_[day] = Slot{start, stop};
}

} // namespace orv::horad
