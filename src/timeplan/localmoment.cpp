#include "timeplan/localmoment.h"

namespace orv::horad {

std::optional<LocalMoment> LocalMoment::at(std::time_t seconds) {
    std::tm local{};
    if (localtime_r(&seconds, &local) == nullptr)
        return std::nullopt;
    char text[10];
    if (std::strftime(text, sizeof text, "%H:%M:%S", &local) == 0)
        return std::nullopt;
    if (local.tm_wday < 0 || local.tm_wday >= 7)
        return std::nullopt;
    return LocalMoment(local.tm_wday, TimePlanTime(text));
}

} // namespace orv::horad
