#pragma once

#include "orv/error.h"
#include "orv/sysloglevel.h"
#include "repeats.h"

#include <chrono>
#include <cstdarg>
#include <functional>
#include <string>

namespace orv::horad {

// Trace levels of a log module, see orv/sysloglevel.h.
inline constexpr unsigned normalTracelevel = 113;
inline constexpr unsigned verboseTracelevel = 1023; // all levels, debug included

struct LogModule;

// A way into the log: a module, which others may share, and the name of the source file that its lines carry.
// It is small and can be copied; copies write to the same module.
//
// A text is cut at 1023 characters. Nothing here reports failure.
class Log {
public:
    // Registers the module. The source name must live as long as the log.
    Log(const char* module, const char* source);

    // Whether debug lines pass, for everybody who writes to the module. They don't until this is called.
    void setVerbose(bool verbose) const;
    // Whether a debug line passes. debug() asks for itself; this spares the caller costly arguments.
    bool debugs() const;

    void error(const char* format, ...) const __attribute__((format(printf, 2, 3)));
    void warning(const char* format, ...) const __attribute__((format(printf, 2, 3)));
    void info(const char* format, ...) const __attribute__((format(printf, 2, 3)));
    void debug(const char* format, ...) const __attribute__((format(printf, 2, 3)));

protected:
    const ORV_Sysloglevel_Modul* handle() const;

private:
    void write(LogLevel level, const char* format, std::va_list arguments) const;

    LogModule* module_; // lives as long as the process
    const char* source_;
};

// The daemon's log module "horad". Off the system log at first, and without debug lines.
//
// The assertion hook is a base because it has to be there before the module is registered.
class Logger : private orv::error::DefaultAssertHook, public Log {
public:
    // Made on the first call, gone at the end of the process.
    static Logger& instance();

    void enableSyslog();

    // For signal handlers: a finished text, with no formatting on the way. The logger must exist by then.
    static void warningFromSignal(const char* text);
    static void debugFromSignal(const char* text);

private:
    Logger();
};

// Takes the lines of the log, for a program that lets horad live in a simulation.
class LogSink {
public:
    // The text as it was logged: whatever control characters it has are still in it.
    virtual void take(LogLevel level, const std::string& module, const char* text) = 0;

protected:
    ~LogSink() = default;
};

// While one lives, all lines but those of signal handlers go to the sink and nowhere else. It outlives this
// object. One at a time.
class RedirectedLog {
public:
    explicit RedirectedLog(LogSink& sink);
    ~RedirectedLog();
    RedirectedLog(const RedirectedLog&) = delete;
    RedirectedLog& operator=(const RedirectedLog&) = delete;
};

// While one lives, lines that repeat are counted, all but those of signal handlers: see repeats.h. One at a
// time. What is still counted at its end is told then.
class CountedRepeats {
public:
    using Clock = std::function<Repeats::TimePoint()>;

    // The clock never goes back. A simulation gives its own: the time that passed in it.
    explicit CountedRepeats(Clock clock = std::chrono::steady_clock::now);
    ~CountedRepeats();
    CountedRepeats(const CountedRepeats&) = delete;
    CountedRepeats& operator=(const CountedRepeats&) = delete;

    void put(const LogOrigin& origin, const char* text) { repeats_.put(origin, text, clock_()); }
    // Tells what is due. The loop calls it once an iteration.
    void tell() { repeats_.tell(clock_()); }

private:
    Repeats repeats_;
    Clock clock_;
};

} // namespace orv::horad
