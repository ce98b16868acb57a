#include "log.h"

#include <cstdio>

namespace orv::horad {

namespace {

constexpr const char* moduleName = "horad";
constexpr const char* sourceName = "log";

// One line of the platform's facility for each level; callers' lines are not known here.
enum SourceLine { ErrorLine = 1, WarningLine, InfoLine, DebugLine };

// What the signal handlers log through: they can't ask for the instance, whose first call takes a lock.
const ORV_Sysloglevel_Modul* signalModule = nullptr;

} // namespace

Logger& Logger::instance() {
    static Logger logger;
    return logger;
}

Logger::Logger() {
    ORV_Sysloglevel_construct2("", moduleName);
    module_ = ORV_Sysloglevel_registerModul(moduleName);
    ORV_Sysloglevel_changeTracelevel(moduleName, normalTracelevel);
    ORV_Sysloglevel_set(0);
    assertHook_.setSyslog(false);
    signalModule = module_;
}

void Logger::enableSyslog() {
    ORV_Sysloglevel_set(1);
    assertHook_.setSyslog(true);
}

void Logger::setVerbose(bool verbose) {
    ORV_Sysloglevel_changeTracelevel(moduleName, verbose ? verboseTracelevel : normalTracelevel);
}

void Logger::error(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    write(ORV_Sysloglevel_error, ErrorLine, format, arguments);
    va_end(arguments);
}

void Logger::warning(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    write(ORV_Sysloglevel_warning, WarningLine, format, arguments);
    va_end(arguments);
}

void Logger::info(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    write(ORV_Sysloglevel_info, InfoLine, format, arguments);
    va_end(arguments);
}

void Logger::debug(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    write(ORV_Sysloglevel_debug, DebugLine, format, arguments);
    va_end(arguments);
}

void Logger::write(WriteLine* writeLine, int sourceLine, const char* format, std::va_list arguments) const {
    char text[1024]; // what does not fit is cut
    if (std::vsnprintf(text, sizeof text, format, arguments) < 0)
        text[0] = '\0';
    writeLine(module_, sourceName, sourceLine, text);
}

void Logger::warningFromSignal(const char* text) {
    ORV_Sysloglevel_warning(signalModule, sourceName, WarningLine, text);
}

void Logger::debugFromSignal(const char* text) {
    ORV_Sysloglevel_debug(signalModule, sourceName, DebugLine, text);
}

} // namespace orv::horad
