#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace tools {

// What is wrong with a command line, in a person's words.
std::string describe(const CLI::App& app, const CLI::Error& error);

} // namespace tools
