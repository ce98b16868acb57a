#include "tools/horactl/circumstances.h"

#include "tools/errors.h"
#include "tools/horactl/timetext.h"
#include "tools/text.h"
#include "velta/text.h"

#include <algorithm>
#include <iterator>
#include <optional>

namespace tools::horactl {

namespace {

struct Outcome {
    const char* name;
    Service::Outcome outcome;
};

constexpr Outcome outcomes[] = {
    {"hang", Service::Outcome::Hangs},
    {"succeed", Service::Outcome::Succeeds},
    {"fail", Service::Outcome::Fails},
};

} // namespace

Service parseService(const std::string& text) {
    constexpr std::int64_t longest = std::int64_t{10} * 365 * 24 * 3600; // seconds
    const std::size_t comma = text.find(',');
    const std::string name = text.substr(0, comma);
    const auto found = std::find_if(std::begin(outcomes), std::end(outcomes),
                                    [&](const Outcome& outcome) { return outcome.name == name; });
    if (found == std::end(outcomes))
        throw WrongUse("--service " + inQuotes(text) +
                       " is not succeed, fail or hang, with ,SECONDS behind it");
    Service service;
    service.outcome = found->outcome;
    if (comma == std::string::npos)
        return service;
    const std::optional<std::int64_t> seconds = velta::wholeNumber(text.substr(comma + 1));
    if (!seconds || *seconds < 0 || *seconds > longest)
        throw WrongUse("--service " + inQuotes(text) +
                       ": what stands behind the comma is no number of seconds");
    service.duration = *seconds;
    return service;
}

ClockStep parseClockStep(const std::string& text, std::time_t present) {
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos)
        throw WrongUse("--clock " + inQuotes(text) + " is not TIME=+DURATION or TIME=-DURATION");
    return {parseTime(text.substr(0, equals), present).moment, parseStep(text.substr(equals + 1))};
}

} // namespace tools::horactl
