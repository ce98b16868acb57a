#include "timeplan/isotime.h"

namespace orv::horad {

namespace {

constexpr const char* isoFormat = "%FT%T%z";

bool shows(std::time_t moment, const std::tm& time) {
    std::tm local{};
    return localtime_r(&moment, &local) != nullptr && local.tm_year == time.tm_year &&
           local.tm_mon == time.tm_mon && local.tm_mday == time.tm_mday && local.tm_hour == time.tm_hour &&
           local.tm_min == time.tm_min && local.tm_sec == time.tm_sec;
}

} // namespace

std::string isoTime(std::time_t moment) {
    char text[64] = {};
    std::tm local{};
    tzset(); // localtime_r() alone would keep the time zone of its first call
    if (localtime_r(&moment, &local) == nullptr || std::strftime(text, sizeof text, isoFormat, &local) == 0)
        return {};
    return text;
}

std::time_t momentOf(const std::string& text) {
    std::tm parsed{};
    if (strptime(text.c_str(), isoFormat, &parsed) == nullptr)
        return 0;
    std::tm local = parsed;
    local.tm_isdst = -1; // the C library finds out whether it was summer time
    const std::time_t moment = std::mktime(&local);
    // In the hour that comes twice mktime() picks either one; the written offset tells which one was meant.
    const std::time_t byOffset = moment + local.tm_gmtoff - parsed.tm_gmtoff;
    return shows(byOffset, parsed) ? byOffset : moment;
}

} // namespace orv::horad
