#pragma once

#include "log.h"
#include "tools/horactl/forecast.h"

#include <ctime>
#include <string>

namespace tools::horactl {

// "error" to "debug".
const char* nameOf(orv::horad::LogLevel level);
// A line of a simulated horad's log for a person, at its own time.
std::string logLine(std::time_t time, orv::horad::LogLevel level, const std::string& module,
                    const std::string& text);
// Shows the forecast's log on standard error.
void showLog(Forecast& forecast);

// While one lives, horad's lines go nowhere: for questions to its classes that no Forecast asks. Not while a
// Forecast lives, which takes them itself.
class SilentLog final : private orv::horad::LogSink {
public:
    SilentLog() : redirected_(*this) {}

private:
    void take(orv::horad::LogLevel, const std::string&, const char*) override {}

    orv::horad::RedirectedLog redirected_;
};

} // namespace tools::horactl
