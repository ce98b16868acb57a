#include "tools/horactl/loglines.h"

#include "tools/horactl/localtime.h"
#include "tools/text.h"

#include <iostream>

namespace tools::horactl {

using orv::horad::LogLevel;

const char* nameOf(LogLevel level) {
    constexpr const char* names[] = {"error", "warning", "info", "debug"}; // in the order of LogLevel
    return names[static_cast<std::size_t>(level)];
}

std::string logLine(std::time_t time, LogLevel level, const std::string& module, const std::string& text) {
    return timeForPerson(time) + "  " + nameOf(level) + " " + module + ": " + printable(text);
}

void showLog(Forecast& forecast) {
    forecast.onLine([](std::time_t time, LogLevel level, const std::string& module, const std::string& text) {
        std::cerr << logLine(time, level, module, text) << '\n';
    });
}

} // namespace tools::horactl
