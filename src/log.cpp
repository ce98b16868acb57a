#include "log.h"

#include <cstddef>
#include <cstdio>
#include <list>
#include <string>
#include <utility>

namespace orv::horad {

// The platform can't be asked for a module's trace level, so that what was set is kept here.
struct LogModule {
    std::string name;
    const ORV_Sysloglevel_Modul* handle;
    bool verbose;
};

namespace {

constexpr const char* daemonModule = "horad";
constexpr const char* daemonSource = "log";

struct Level {
    void (*write)(const ORV_Sysloglevel_Modul* module, const char* file, int line, const char* text);
    int sourceLine; // one for each level; callers' lines are not known here
};

constexpr Level levels[] = {
    // in the order of LogLevel
    {ORV_Sysloglevel_error, 1},
    {ORV_Sysloglevel_warning, 2},
    {ORV_Sysloglevel_info, 3},
    {ORV_Sysloglevel_debug, 4},
};

void writeLine(const LogOrigin& origin, const char* text) {
    const Level& level = levels[static_cast<std::size_t>(origin.level)];
    level.write(origin.module, origin.source, level.sourceLine, text);
}

// There is one for each name, and the names are few.
std::list<LogModule>& modules() {
    static std::list<LogModule> known;
    return known;
}

LogModule& find(const char* name) {
    for (LogModule& module : modules())
        if (module.name == name)
            return module;
    return modules().emplace_back(LogModule{name, nullptr, false});
}

LogSink* logSink = nullptr;               // while somebody takes the lines
CountedRepeats* countedRepeats = nullptr; // while somebody counts them

// Where lines end up that are neither counted nor a signal handler's.
void deliver(const LogOrigin& origin, const char* text) {
    if (logSink == nullptr) {
        writeLine(origin, text);
        return;
    }
    for (const LogModule& module : modules())
        if (module.handle == origin.module) {
            logSink->take(origin.level, module.name, text);
            return;
        }
}

// What the signal handlers log through: they can't ask for the instance, whose first call takes a lock.
const ORV_Sysloglevel_Modul* signalModule = nullptr;

const char* nameProgram() {
    ORV_Sysloglevel_construct2("", daemonModule);
    return daemonModule;
}

} // namespace

Log::Log(const char* module, const char* source) : module_(&find(module)), source_(source) {
    module_->handle = ORV_Sysloglevel_registerModul(module);
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
    write(LogLevel::Error, format, arguments);
    va_end(arguments);
}

void Log::warning(const char* format, ...) const {
    std::va_list arguments;
    va_start(arguments, format);
    write(LogLevel::Warning, format, arguments);
    va_end(arguments);
}

void Log::info(const char* format, ...) const {
    std::va_list arguments;
    va_start(arguments, format);
    write(LogLevel::Info, format, arguments);
    va_end(arguments);
}

void Log::debug(const char* format, ...) const {
    if (!debugs())
        return;
    std::va_list arguments;
    va_start(arguments, format);
    write(LogLevel::Debug, format, arguments);
    va_end(arguments);
}

void Log::write(LogLevel level, const char* format, std::va_list arguments) const {
    char text[logTextLimit + 1]; // what does not fit is cut
    if (std::vsnprintf(text, sizeof text, format, arguments) < 0)
        text[0] = '\0';
    const LogOrigin origin = {level, handle(), source_};
    if (countedRepeats != nullptr)
        countedRepeats->put(origin, text);
    else
        deliver(origin, text);
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
    writeLine({LogLevel::Warning, signalModule, daemonSource}, text);
}

void Logger::debugFromSignal(const char* text) {
    writeLine({LogLevel::Debug, signalModule, daemonSource}, text);
}

RedirectedLog::RedirectedLog(LogSink& sink) {
    logSink = &sink;
}

RedirectedLog::~RedirectedLog() {
    logSink = nullptr;
}

CountedRepeats::CountedRepeats(Clock clock) : repeats_(deliver), clock_(std::move(clock)) {
    countedRepeats = this;
}

CountedRepeats::~CountedRepeats() {
    countedRepeats = nullptr;
    repeats_.tellAll();
}

} // namespace orv::horad
