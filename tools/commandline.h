#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

namespace tools {

inline constexpr int exitDone = 0;

// What sets one tool apart from another.
struct Tool {
    const char* name;
    const char* usage;                     // what -h prints
    int refused;                           // the exit status where the command can't be done
    std::function<void(CLI::App&)> define; // tells the parser the tool's grammar
    std::function<int()> run;              // does what the command line says, and gives the exit status
};

// The tool from its start to its exit status, which is 2 for wrong use. Where it fails, it says so in one
// line on standard error. A reader of its output who goes away is no failure. Its own log is silent: what
// goes wrong is told once.
int runTool(const Tool& tool, int argc, char* argv[]);

// A line on standard error, the tool's name in front.
void complain(const char* tool, const std::string& text);

} // namespace tools
