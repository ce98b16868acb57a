#include "sim/options.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <sstream>

#include <getopt.h>

namespace sim {

namespace {

constexpr const char* usage =
    "sim [--seeds N | --seed S] [--zones LIST] [--days N] [--jobs N]\n"
    "sim --scenario NAME\n"
    "Lets horad live in simulated households and looks whether it does what it should.\n"
    "  --seeds N        the households of the seeds 1 to N (10)\n"
    "  --seed S         the household of that seed alone\n"
    "  --zones LIST     each of them in each of these time zones, separated by commas\n"
    "  --days N         for so many days (7)\n"
    "  --jobs N         so many at the same time (1)\n"
    "  --scenario NAME  instead of households: that scenario, or all of them\n";

constexpr option longOptions[] = {
    {"seeds", required_argument, nullptr, 'n'}, {"seed", required_argument, nullptr, 's'},
    {"zones", required_argument, nullptr, 'z'}, {"days", required_argument, nullptr, 'd'},
    {"jobs", required_argument, nullptr, 'j'},  {"scenario", required_argument, nullptr, 'c'},
    {"help", no_argument, nullptr, 'h'},        {nullptr, 0, nullptr, 0},
};

struct Wrong {
    std::string what;
};

long long numberIn(const std::string& text, const char* option, long long least, long long most) {
    char* end = nullptr;
    errno = 0;
    const long long number = std::strtoll(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno != 0 || number < least || number > most)
        throw Wrong{std::string(option) + " takes a number from " + std::to_string(least) + " to " +
                    std::to_string(most) + ", not \"" + text + "\""};
    return number;
}

int countIn(const std::string& text, const char* option) {
    constexpr int most = 100000;
    return static_cast<int>(numberIn(text, option, 1, most));
}

// A name that the C library does not know would be UTC to it, without a word.
std::vector<std::string> zonesIn(const std::string& text) {
    std::vector<std::string> zones;
    std::istringstream list(text);
    for (std::string zone; std::getline(list, zone, ',');) {
        if (!std::filesystem::is_regular_file("/usr/share/zoneinfo/" + zone))
            throw Wrong{"there is no time zone \"" + zone + "\""};
        zones.push_back(zone);
    }
    return zones;
}

void take(Options& options, int letter, const std::string& text) {
    switch (letter) {
    case 'n':
        options.seeds = countIn(text, "--seeds");
        break;
    case 's':
        options.seed = static_cast<std::uint64_t>(numberIn(text, "--seed", 0, LLONG_MAX));
        break;
    case 'z':
        options.zones = zonesIn(text);
        break;
    case 'd':
        options.days = countIn(text, "--days");
        break;
    case 'j':
        options.jobs = countIn(text, "--jobs");
        break;
    case 'c':
        options.scenario = text;
        break;
    case 'h':
        std::cout << usage;
        options.help = true;
        break;
    default:
        throw Wrong{}; // the C library has said what
    }
}

} // namespace

std::optional<Options> parseOptions(int argc, char* argv[]) {
    Options options;
    try {
        for (int letter = 0; (letter = getopt_long(argc, argv, "", longOptions, nullptr)) != -1;)
            take(options, letter, optarg != nullptr ? optarg : "");
        if (optind < argc)
            throw Wrong{"what is \"" + std::string(argv[optind]) + "\"?"};
        return options;
    } catch (const Wrong& wrong) {
        std::cerr << (wrong.what.empty() ? "" : "sim: " + wrong.what + "\n") << usage;
        return std::nullopt;
    }
}

} // namespace sim
