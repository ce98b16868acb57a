#include "unit/horad/recordedlog.h"

#include "orv/sysloglevel.h"

#include <list>

struct ORV_Sysloglevel_Modul {
    std::string name;
};

namespace recordedlog {

namespace {

std::list<ORV_Sysloglevel_Modul> modules;

void recordLine(const char* level, const ORV_Sysloglevel_Modul* module, const char* file, int line,
                const char* text) {
    if (onLine)
        onLine();
    calls().push_back(std::string(level) + " " + module->name + " " + file + " " + std::to_string(line) +
                      ": " + text);
}

} // namespace

std::function<void()> onLine;

std::vector<std::string>& calls() {
    static std::vector<std::string> calls;
    return calls;
}

} // namespace recordedlog

using recordedlog::calls;
using recordedlog::recordLine;

void ORV_Sysloglevel_construct2(const char* prefix, const char* program) {
    calls().push_back("construct2 '" + std::string(prefix) + "' '" + program + "'");
}

ORV_Sysloglevel_Modul* ORV_Sysloglevel_registerModul(const char* name) {
    calls().push_back("registerModul " + std::string(name));
    return &recordedlog::modules.emplace_back(ORV_Sysloglevel_Modul{name});
}

void ORV_Sysloglevel_changeTracelevel(const char* module, unsigned mask) {
    calls().push_back("changeTracelevel " + std::string(module) + " " + std::to_string(mask));
}

void ORV_Sysloglevel_set(int useSyslog) {
    calls().push_back("set " + std::to_string(useSyslog));
}

void ORV_Sysloglevel_error(const ORV_Sysloglevel_Modul* module, const char* file, int line,
                           const char* text) {
    recordLine("error", module, file, line, text);
}

void ORV_Sysloglevel_warning(const ORV_Sysloglevel_Modul* module, const char* file, int line,
                             const char* text) {
    recordLine("warning", module, file, line, text);
}

void ORV_Sysloglevel_info(const ORV_Sysloglevel_Modul* module, const char* file, int line, const char* text) {
    recordLine("info", module, file, line, text);
}

void ORV_Sysloglevel_debug(const ORV_Sysloglevel_Modul* module, const char* file, int line,
                           const char* text) {
    recordLine("debug", module, file, line, text);
}
