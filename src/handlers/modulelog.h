#pragma once

#include "orv/sysloglevel.h"

#include <string>

namespace orv::horad {

// A handler's own way into the log: a module, which may be one of others too, and the name of the source file
// that its lines carry. The texts are finished, with VAStr(). Copies write to the same module.
class ModuleLog {
public:
    // Registers the module where that was not done yet. The texts have to live as long as the log.
    ModuleLog(const char* module, const char* source);

    // Whether debug lines pass, for everybody who writes to the module.
    void setVerbose(bool verbose) const;

    void error(const char* text) const;
    void warning(const char* text) const;
    void info(const char* text) const;
    void debug(const char* text) const;
    void error(const std::string& text) const { error(text.c_str()); }
    void warning(const std::string& text) const { warning(text.c_str()); }
    void info(const std::string& text) const { info(text.c_str()); }
    void debug(const std::string& text) const { debug(text.c_str()); }

private:
    const char* name_;
    const char* source_;
    const ORV_Sysloglevel_Modul* module_; // lives as long as the process
};

} // namespace orv::horad
