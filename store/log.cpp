#include "store/log.h"

#include "orv/sysloglevel.h"

namespace store::log {

namespace {

constexpr const char* moduleName = "cfgserver";
constexpr unsigned everything = 1023;
constexpr unsigned withoutDebug = 113;

ORV_Sysloglevel_Modul* module() {
    static ORV_Sysloglevel_Modul* const registered = ORV_Sysloglevel_registerModul(moduleName);
    return registered;
}

} // namespace

void open(bool debug, bool useSyslog) {
    ORV_Sysloglevel_construct2("", moduleName);
    (void)module(); // a level is kept only for a module that is registered
    ORV_Sysloglevel_changeTracelevel(moduleName, debug ? everything : withoutDebug);
    ORV_Sysloglevel_set(useSyslog ? 1 : 0);
}

void error(const std::string& text, const char* file, int line) {
    ORV_Sysloglevel_error(module(), file, line, text.c_str());
}

void warning(const std::string& text, const char* file, int line) {
    ORV_Sysloglevel_warning(module(), file, line, text.c_str());
}

void info(const std::string& text, const char* file, int line) {
    ORV_Sysloglevel_info(module(), file, line, text.c_str());
}

void debug(const std::string& text, const char* file, int line) {
    ORV_Sysloglevel_debug(module(), file, line, text.c_str());
}

} // namespace store::log
