#include "options.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>

#include <getopt.h>

namespace orv::horad {

namespace {

constexpr const char* shortOptions = "hdt:vr:";
constexpr option longOptions[] = {
    {"daemon", no_argument, nullptr, 'd'},      {"verbose", no_argument, nullptr, 'v'},
    {"table", required_argument, nullptr, 't'}, {"repeatdelay", required_argument, nullptr, 'r'},
    {"help", no_argument, nullptr, 'h'},        {nullptr, 0, nullptr, 0},
};

constexpr const char* usageLines[] = {
    "Usage: horad [OPTION] -t TABLE [-t TABLE]",
    "",
    "  -d, --daemon\t\tStart as daemon",
    "  -v, --verbose\t\tPrint debug messages",
    "  -t, --table\t\ta table to be watched",
    "  -r, --repeatdelay\tDelay between two attemps to execute time window controlled services",
    "  -h, --help\t\tPrints this help",
};

void printUsage() {
    for (const char* line : usageLines)
        std::cout << line << std::endl;
}

// Deliberately unchecked: a text that is not a number gives 0, large values saturate, negative ones wrap.
// C25: sic
std::uint32_t toSeconds(const char* text) {
    const long long number = std::strtoll(text, nullptr, 10);
    return static_cast<std::uint32_t>(std::min<long long>(number, UINT32_MAX));
}

} // namespace

OptionsResult parseOptions(int argc, char* argv[], Options& options) {
    int option = 0;
    while ((option = getopt_long(argc, argv, shortOptions, longOptions, nullptr)) != -1) {
        switch (option) {
        case 'd':
            options.daemon = true;
            break;
        case 'v':
            options.verbose = true;
            break;
        case 't':
            options.tables.emplace_back(optarg);
            break;
        case 'r':
            options.repeatDelay = toSeconds(optarg);
            break;
        case 'h':
            printUsage();
            return OptionsResult::Help;
        default:
            std::cerr << "Wrong option" << std::endl;
            return OptionsResult::Wrong;
        }
    }
    return OptionsResult::Run;
}

} // namespace orv::horad
