#pragma once

#include <cstdint>
#include <list>
#include <optional>
#include <string>

// How the horad of this machine is set: by its command line and its environment.
namespace tools::horactl {

// What horactl's own command line says.
struct GivenSetting {
    std::list<std::string> tables; // none: horad's
    std::optional<std::uint32_t> repeatDelay;
};

struct Setting {
    std::list<std::string> tables; // none: all plan tables
    std::uint32_t repeatDelay = 0; // seconds; 0 is horad's own default, as for orv::horad::Horad
    std::string zone;              // a value of TZ
    std::string origin;            // where all that comes from, in one line for a person, printable
};

struct SettingPlaces {
    std::string proc = "/proc";
    std::string pidFile = "/var/run/horad";
    std::string storeFolder = "/tmp"; // a horad whose own is another one runs for another store
};

// What is not given comes from the horad that runs here; where several do, from the one that the pid file
// names, else from the one with the lowest pid. Nothing of it is changed, nothing printed.
Setting findSetting(const GivenSetting& given, const SettingPlaces& places = {});

// Makes it the process's time zone.
void useZone(const std::string& zone);

} // namespace tools::horactl
