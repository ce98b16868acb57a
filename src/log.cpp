#include "log.h"

#include <cstdarg>
#include <cstdio>

namespace orv::horad {

namespace {

constexpr const char* moduleName = "horad";
constexpr const char* sourceName = "log";
constexpr unsigned normalTracelevel = 113;
constexpr unsigned verboseTracelevel = 1023; // all levels, debug included

// One line of the platform's facility for each level; callers' lines are not known here.
enum SourceLine { ErrorLine = 1, WarningLine, InfoLine, DebugLine };

// A text on the stack: what does not fit is cut.
class Text {
public:
    Text(const char* format, std::va_list arguments) {
        if (std::vsnprintf(text_, sizeof text_, format, arguments) < 0)
            text_[0] = '\0';
    }
    const char* get() const { return text_; }

private:
    char text_[1024];
};

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
    const Text text(format, arguments);
    va_end(arguments);
    ORV_Sysloglevel_error(module_, sourceName, ErrorLine, text.get());
}

void Logger::warning(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const Text text(format, arguments);
    va_end(arguments);
    ORV_Sysloglevel_warning(module_, sourceName, WarningLine, text.get());
}

void Logger::info(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const Text text(format, arguments);
    va_end(arguments);
    ORV_Sysloglevel_info(module_, sourceName, InfoLine, text.get());
}

void Logger::debug(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const Text text(format, arguments);
    va_end(arguments);
    ORV_Sysloglevel_debug(module_, sourceName, DebugLine, text.get());
}

void Logger::warningFromSignal(const char* text) {
    ORV_Sysloglevel_warning(signalModule, sourceName, WarningLine, text);
}

void Logger::debugFromSignal(const char* text) {
    ORV_Sysloglevel_debug(signalModule, sourceName, DebugLine, text);
}

} // namespace orv::horad
