#pragma once

#include "orv/error.h"
#include "orv/sysloglevel.h"

#include <cstdarg>

namespace orv::horad {

// Trace levels of a log module, see orv/sysloglevel.h.
inline constexpr unsigned normalTracelevel = 113;
inline constexpr unsigned verboseTracelevel = 1023; // all levels, debug included

// The daemon's log module "horad". Off the system log at first, and without debug lines.
//
// A text is cut at 1023 characters. Nothing here reports failure.
class Logger {
public:
    // Made on the first call, gone at the end of the process.
    static Logger& instance();

    void enableSyslog();
    void setVerbose(bool verbose);

    void error(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void warning(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void info(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void debug(const char* format, ...) __attribute__((format(printf, 2, 3)));

    // For signal handlers: a finished text, with no formatting on the way. The logger must exist by then.
    static void warningFromSignal(const char* text);
    static void debugFromSignal(const char* text);

private:
    using WriteLine = void(const ORV_Sysloglevel_Modul* module, const char* file, int line, const char* text);

    Logger();
    void write(WriteLine* writeLine, int sourceLine, const char* format, std::va_list arguments) const;

    orv::error::DefaultAssertHook assertHook_;
    ORV_Sysloglevel_Modul* module_;
};

} // namespace orv::horad
