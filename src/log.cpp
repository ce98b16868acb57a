#include "log.h"

#include <algorithm>
#include <cstdio>
#include <list>
#include <string>

namespace orv::horad {

namespace {

constexpr const char* daemonModule = "horad";
constexpr const char* daemonSource = "log";

// One line of the platform's facility for each level; callers' lines are not known here.
enum SourceLine { ErrorLine = 1, WarningLine, InfoLine, DebugLine };

// What the signal handlers log through: they can't ask for the instance, whose first call takes a lock.
const ORV_Sysloglevel_Modul* signalModule = nullptr;

const char* nameProgram() {
    ORV_Sysloglevel_construct2("", daemonModule);
    return daemonModule;
}

} // namespace

// The platform can't be asked for a module's trace level, so that what was set is kept here.
struct Log::Module {
    std::string name;
    const ORV_Sysloglevel_Modul* handle;
    bool verbose;
};

struct Log::Level {
    void (*write)(const ORV_Sysloglevel_Modul* module, const char* file, int line, const char* text);
    int sourceLine;
};

Log::Log(const char* module, const char* source) : module_(&find(module)), source_(source) {
    module_->handle = ORV_Sysloglevel_registerModul(module);
}

// There is one for each name, and the names are few.
Log::Module& Log::find(const char* name) {
    static std::list<Module> modules;
    const auto known = std::find_if(modules.begin(), modules.end(),
                                    [name](const Module& module) { return module.name == name; });
    return known != modules.end() ? *known : modules.emplace_back(Module{name, nullptr, false});
}

void Log::setVerbose(bool verbose) const {
    module_->verbose = verbose;
    ORV_Sysloglevel_changeTracelevel(module_->name.c_str(), verbose ? verboseTracelevel : normalTracelevel);
}

const ORV_Sysloglevel_Modul* Log::handle() const {
    return module_->handle;
}

bool Log::debugs() const {
    return module_->verbose;
}

void Log::error(const char* format, ...) const {
    std::va_list arguments;
    va_start(arguments, format);
    write({ORV_Sysloglevel_error, ErrorLine}, format, arguments);
    va_end(arguments);
}

void Log::warning(const char* format, ...) const {
    std::va_list arguments;
    va_start(arguments, format);
    write({ORV_Sysloglevel_warning, WarningLine}, format, arguments);
    va_end(arguments);
}

void Log::info(const char* format, ...) const {
    std::va_list arguments;
    va_start(arguments, format);
    write({ORV_Sysloglevel_info, InfoLine}, format, arguments);
    va_end(arguments);
}

void Log::debug(const char* format, ...) const {
    if (!debugs())
        return;
    std::va_list arguments;
    va_start(arguments, format);
    write({ORV_Sysloglevel_debug, DebugLine}, format, arguments);
    va_end(arguments);
}

void Log::write(const Level& level, const char* format, std::va_list arguments) const {
    char text[1024]; // what does not fit is cut
    if (std::vsnprintf(text, sizeof text, format, arguments) < 0)
        text[0] = '\0';
    level.write(handle(), source_, level.sourceLine, text);
}

Logger& Logger::instance() {
    static Logger logger;
    return logger;
}

Logger::Logger() : Log(nameProgram(), daemonSource) {
    signalModule = handle();
    setVerbose(false);
    ORV_Sysloglevel_set(0);
    setSyslog(false);
}

void Logger::enableSyslog() {
    ORV_Sysloglevel_set(1);
    setSyslog(true);
}

void Logger::warningFromSignal(const char* text) {
    ORV_Sysloglevel_warning(signalModule, daemonSource, WarningLine, text);
}

void Logger::debugFromSignal(const char* text) {
    ORV_Sysloglevel_debug(signalModule, daemonSource, DebugLine, text);
}

} // namespace orv::horad
