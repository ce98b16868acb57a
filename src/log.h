#pragma once

#include "orv/error.h"
#include "orv/sysloglevel.h"
#include "repeats.h"

#include <cstdarg>

namespace orv::horad {

// Trace levels of a log module, see orv/sysloglevel.h.
inline constexpr unsigned normalTracelevel = 113;
inline constexpr unsigned verboseTracelevel = 1023; // all levels, debug included

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
    struct Module;

    static Module& find(const char* name);
    void write(LogLevel level, const char* format, std::va_list arguments) const;

    Module* module_; // lives as long as the process
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

// While one lives, lines that repeat are counted, all but those of signal handlers: see repeats.h. One at a
// time. What is still counted at its end is told then.
class CountedRepeats {
public:
    CountedRepeats();
    ~CountedRepeats();
    CountedRepeats(const CountedRepeats&) = delete;
    CountedRepeats& operator=(const CountedRepeats&) = delete;

    // Tells what is due. The loop calls it once an iteration.
    void tell();

private:
    Repeats repeats_;
};

} // namespace orv::horad
