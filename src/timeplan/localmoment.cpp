#include "timeplan/localmoment.h"

namespace orv::horad {

std::optional<LocalMoment> LocalMoment::at(std::time_t seconds) {
    std::tm local{};
    tzset(); // localtime_r() alone would keep the time zone of its first call
    if (localtime_r(&seconds, &local) == nullptr)
        return std::nullopt;
    if (local.tm_wday < 0 || local.tm_wday >= 7)
        return std::nullopt;
    return LocalMoment(local.tm_wday, TimePlanTime::verbatim(local.tm_hour, local.tm_min, local.tm_sec));
}

} // namespace orv::horad
