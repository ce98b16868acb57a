#include "handlers/modulelog.h"

#include "log.h"

namespace orv::horad {

ModuleLog::ModuleLog(const char* module, const char* source)
    : name_(module), source_(source), module_(ORV_Sysloglevel_registerModul(module)) {}

void ModuleLog::setVerbose(bool verbose) const {
    ORV_Sysloglevel_changeTracelevel(name_, verbose ? verboseTracelevel : normalTracelevel);
}

void ModuleLog::error(const char* text) const {
    ORV_Sysloglevel_error(module_, source_, __LINE__, text);
}

void ModuleLog::warning(const char* text) const {
    ORV_Sysloglevel_warning(module_, source_, __LINE__, text);
}

void ModuleLog::info(const char* text) const {
    ORV_Sysloglevel_info(module_, source_, __LINE__, text);
}

void ModuleLog::debug(const char* text) const {
    ORV_Sysloglevel_debug(module_, source_, __LINE__, text);
}

} // namespace orv::horad
