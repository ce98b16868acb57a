#include "timeplan/timeplantime.h"

#include "orv/string.h"

#include <string_view>

namespace orv::horad {

using orv::string::toInteger;

TimePlanTime::TimePlanTime(const std::string& whole) {
    const std::string_view text = whole;
    const std::size_t first = text.find(':');
    hour_ = toInteger(text.substr(0, first));
    if (first == std::string::npos)
        return;
    const std::size_t second = text.find(':', first + 1);
    minute_ = toInteger(text.substr(first + 1, second == std::string::npos ? second : second - first - 1));
    if (second != std::string::npos)
        second_ = toInteger(text.substr(second + 1));
}

std::ostream& TimePlanTime::put(std::ostream& os) const {
    return os << hour_ << ":" << minute_ << ":" << second_;
}

} // namespace orv::horad
