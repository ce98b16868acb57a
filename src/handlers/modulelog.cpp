#include "handlers/timeframelog.h"

namespace orv::horad {

namespace {

constexpr const char* moduleName = "timefrmhdl";
constexpr const char* sourceName = "timeframehandler";
constexpr unsigned normalTracelevel = 113;
constexpr unsigned verboseTracelevel = 1023; // all levels, debug included

} // namespace

TimeframeLog::TimeframeLog(bool debug) : module_(ORV_Sysloglevel_registerModul(moduleName)) {
    ORV_Sysloglevel_changeTracelevel(moduleName, debug ? verboseTracelevel : normalTracelevel);
}

void TimeframeLog::error(const std::string& text) const {
    ORV_Sysloglevel_error(module_, sourceName, __LINE__, text.c_str());
}

void TimeframeLog::warning(const std::string& text) const {
    ORV_Sysloglevel_warning(module_, sourceName, __LINE__, text.c_str());
}

void TimeframeLog::info(const std::string& text) const {
    ORV_Sysloglevel_info(module_, sourceName, __LINE__, text.c_str());
}

void TimeframeLog::debug(const std::string& text) const {
    ORV_Sysloglevel_debug(module_, sourceName, __LINE__, text.c_str());
}

} // namespace orv::horad
