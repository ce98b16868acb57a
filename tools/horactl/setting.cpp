#include "tools/horactl/setting.h"

#include "handlers/timeframereader.h"
#include "tools/horactl/runninghorads.h"
#include "tools/horactl/scanner.h"
#include "tools/text.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <vector>

namespace tools::horactl {

namespace {

// As where TZ is not set, but the C library does not look at the file again for each conversion.
constexpr const char* machinesZone = ":/etc/localtime";
constexpr const char* machinesZoneText = "this machine's time zone";

std::string tablesText(const std::list<std::string>& tables) {
    std::string text;
    for (const std::string& table : tables)
        text += (text.empty() ? "-t " : " -t ") + asWord(table);
    return text.empty() ? "all plan tables" : text;
}

std::string delayText(std::uint32_t repeatDelay) {
    return "a repeat delay of " + std::to_string(orv::horad::repeatIntervalOf(repeatDelay)) + " s";
}

std::string joined(const std::vector<std::string>& parts) {
    std::string text;
    for (const std::string& part : parts)
        text += (text.empty() ? "" : ", ") + part;
    return text;
}

std::optional<std::int64_t> pidIn(const std::string& pidFile) {
    const std::string text = textOfFile(pidFile).value_or("");
    return Scanner(text).takeNumber();
}

// Which one counts, and how it was chosen where there are several.
struct Choice {
    const RunningHorad& horad;
    std::string reason;
};

Choice chosenFrom(const std::vector<RunningHorad>& horads, const std::string& pidFile) {
    const std::optional<std::int64_t> named = pidIn(pidFile);
    const auto byFile = std::find_if(horads.begin(), horads.end(),
                                     [named](const RunningHorad& horad) { return horad.pid == named; });
    const RunningHorad& chosen = byFile != horads.end() ? *byFile : horads.front();
    if (horads.size() == 1)
        return {chosen, ""};
    std::vector<std::string> others;
    for (const RunningHorad& horad : horads)
        if (horad.pid != chosen.pid)
            others.push_back(std::to_string(horad.pid));
    return {chosen, " (" + (byFile != horads.end() ? "which " + pidFile + " names" : "the lowest pid") +
                        "; not as " + joined(others) + ')'};
}

// A zone of this process's own, where horad's is not known.
std::string ownZone(std::string& text) {
    const char* const set = std::getenv("TZ");
    text = set != nullptr ? "TZ " + asWord(set) : machinesZoneText;
    return set != nullptr ? set : machinesZone;
}

std::string horadsZone(int pid, const std::string& proc, std::string& text) {
    const RunningZone running = zoneOf(pid, proc);
    if (!running.isReadable) {
        const std::string zone = ownZone(text);
        text += " (horad's may not be read)";
        return zone;
    }
    text = running.zone ? "TZ " + asWord(*running.zone) : machinesZoneText;
    return running.zone.value_or(machinesZone);
}

std::string givenText(const GivenSetting& given) {
    std::vector<std::string> parts;
    if (!given.tables.empty())
        parts.push_back(tablesText(given.tables));
    if (given.repeatDelay)
        parts.push_back(delayText(*given.repeatDelay));
    return parts.empty() ? "" : "given: " + joined(parts) + "; ";
}

} // namespace

Setting findSetting(const GivenSetting& given, const SettingPlaces& places) {
    const std::vector<RunningHorad> horads = runningHorads(places.proc, places.storeFolder);
    Setting setting;
    std::string origin = "no horad runs here";
    std::string zoneText;
    if (horads.empty()) {
        setting.zone = ownZone(zoneText);
    } else {
        const Choice choice = chosenFrom(horads, places.pidFile);
        setting.tables = choice.horad.options.tables;
        setting.repeatDelay = choice.horad.options.repeatDelay;
        setting.zone = horadsZone(choice.horad.pid, places.proc, zoneText);
        origin = "as horad " + std::to_string(choice.horad.pid) + " runs" + choice.reason;
    }
    std::vector<std::string> taken;
    if (given.tables.empty())
        taken.push_back(tablesText(setting.tables));
    else
        setting.tables = given.tables;
    if (!given.repeatDelay)
        taken.push_back(delayText(setting.repeatDelay));
    setting.repeatDelay = given.repeatDelay.value_or(setting.repeatDelay);
    taken.push_back(zoneText);
    setting.origin = givenText(given) + origin + ": " + joined(taken);
    return setting;
}

void useZone(const std::string& zone) {
    (void)setenv("TZ", zone.c_str(), 1); // fails only for lack of memory
    tzset();
}

} // namespace tools::horactl
