#include "timeplan/timeplantime.h"

#include "orv/string.h"

#include <tuple>

namespace orv::horad {

using orv::string::toInteger;

TimePlanTime::TimePlanTime(const std::string& text) {
    const std::size_t first = text.find(':');
    hour_ = toInteger(text.substr(0, first));
    if (first == std::string::npos)
        return;
    const std::size_t second = text.find(':', first + 1);
    minute_ = toInteger(text.substr(first + 1, second == std::string::npos ? second : second - first - 1));
    if (second != std::string::npos)
        second_ = toInteger(text.substr(second + 1));
}

TimePlanTime::TimePlanTime(int hour, int minute, int second) : hour_(hour), minute_(minute), second_(second) {
    if (hour == 24) {
        hour_ = 23;
        minute_ = 59;
        second_ = 59;
    }
}

std::ostream& TimePlanTime::put(std::ostream& os) const {
    return os << hour_ << ":" << minute_ << ":" << second_;
}

bool TimePlanTime::operator<(const TimePlanTime& other) const {
    return std::tie(hour_, minute_, second_) < std::tie(other.hour_, other.minute_, other.second_);
}

} // namespace orv::horad
