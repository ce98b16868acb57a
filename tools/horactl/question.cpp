#include "tools/horactl/question.h"

#include "orv/system.h"
#include "probes/multicaststreams.h"
#include "probes/systemidle.h"
#include "simulation/tables.h"

#include <cerrno>
#include <cstring>
#include <exception>
#include <limits>

#include <unistd.h>

namespace tools::horactl {

namespace {

// The probes take a file that may not be read for one that is not there.
std::string unreadable() {
    std::string text;
    for (const char* const path : {orv::kvenvSipCallFile, orv::ipMrCacheFile, orv::ip6MrCacheFile})
        if (access(path, R_OK) != 0 && errno != ENOENT && errno != ENOTDIR)
            text += (text.empty() ? "" : "; ") + std::string(path) + ": " + std::strerror(errno);
    return text;
}

} // namespace

Line lineOf(const Question& question) {
    Line line;
    if (!question.real)
        return line;
    orv::simulation::Tables none; // the probes take a store and ask it nothing
    line.problem = unreadable();
    try {
        line.call = orv::isSipCallActive(none);
    } catch (const std::exception&) {
        line.problem = std::string(orv::kvenvSipCallFile) + ": its first line is no number; horad ends there";
    }
    line.stream = orv::isIPTVStreamRunning();
    return line;
}

std::int64_t uptimeOf(const Question& question) {
    return question.real ? orv::System::real().uptime() : Circumstances().uptime;
}

Circumstances circumstancesOf(const Question& question, const Line& line, LineRuns runs) {
    constexpr std::int64_t aMinute = 60;
    constexpr std::int64_t aYear = std::int64_t{366} * 24 * 3600;
    const Span span{question.present, question.present + (runs == LineRuns::OverSoon ? aMinute : aYear)};
    Circumstances circumstances;
    circumstances.uptime = uptimeOf(question);
    if (line.call)
        circumstances.calls.push_back(span);
    if (line.stream)
        circumstances.streams.push_back(span);
    return circumstances;
}

} // namespace tools::horactl
