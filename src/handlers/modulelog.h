#pragma once

#include "orv/sysloglevel.h"

#include <string>

namespace orv::horad {

// The log module of everything that has to do with time frames. Copies write to the same one.
class TimeframeLog {
public:
    // `debug`: debug lines pass too.
    explicit TimeframeLog(bool debug);

    void error(const std::string& text) const;
    void warning(const std::string& text) const;
    void info(const std::string& text) const;
    void debug(const std::string& text) const;

private:
    const ORV_Sysloglevel_Modul* module_; // lives as long as the process
};

} // namespace orv::horad
