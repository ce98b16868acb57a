#pragma once

#include <CLI/CLI.hpp>
#include <cstddef>
#include <cstdint>
#include <list>
#include <optional>
#include <string>
#include <vector>

namespace tools::horactl {

inline constexpr const char* programName = "horactl";

extern const char* const usage;

// The command line as it was given: what its times mean depends on the zone, which comes later.
struct Arguments {
    std::string command;

    std::optional<std::string> socket;
    std::optional<std::string> file;
    std::list<std::string> tables;
    std::optional<std::uint32_t> repeatDelay;
    std::optional<std::string> at;
    bool verbose = false;
    bool json = false;

    std::size_t most = 10;
    unsigned days = 8;
    std::string subject;
    std::string time;
    std::optional<std::string> from;
    std::string duration = "1d";
    std::optional<std::string> svg;
    std::optional<std::string> html;
    bool boot = false;
    std::vector<std::string> calls;
    std::vector<std::string> streams;
    std::string service = "hang";
    std::vector<std::string> clockSteps;
};

// Makes the parser fill the arguments. Both outlive its parse().
void define(CLI::App& app, Arguments& arguments);

} // namespace tools::horactl
