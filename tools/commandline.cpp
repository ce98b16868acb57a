#include "tools/commandline.h"

#include <vector>

namespace tools {

// What the parser says of a missing command speaks of subcommands, and not of the word that is no command.
std::string describe(const CLI::App& app, const CLI::Error& error) {
    if (error.get_name() != "RequiredError" || !app.get_subcommands().empty())
        return error.what();
    const std::vector<std::string> words = app.remaining();
    return words.empty() ? "a command is required" : "unknown command: " + words.front();
}

} // namespace tools
