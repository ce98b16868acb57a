#include "tools/commandline.h"

#include "orv/daemon.h"
#include "orv/lackofmemory.h"
#include "orv/sysloglevel.h"
#include "tools/errors.h"
#include "tools/output.h"
#include "tools/text.h"

#include <cstddef>
#include <exception>
#include <iostream>
#include <new>
#include <vector>

namespace tools {

namespace {

constexpr int exitWrongUse = 2;

constexpr std::size_t complaintLimit = 2000; // bytes; a file may hold names of any length

// The last command that was given, where commands have commands of their own.
const CLI::App& innermost(const CLI::App& app) {
    const std::vector<CLI::App*> commands = app.get_subcommands();
    return commands.empty() ? app : innermost(*commands.front());
}

// What is wrong with a command line, in a person's words: what the parser says of a missing command speaks of
// subcommands, and not of the word that is no command.
std::string describe(const CLI::App& app, const CLI::Error& error) {
    const CLI::App& last = innermost(app);
    if (error.get_name() != "RequiredError" || last.get_require_subcommand_min() == 0)
        return error.what();
    const std::string parent = last.get_name().empty() ? "" : " " + last.get_name();
    const std::vector<std::string> words = app.remaining(true);
    return words.empty() ? "a command is required" + (parent.empty() ? "" : " behind" + parent)
                         : "unknown command:" + parent + " " + words.front();
}

int wrongUse(const Tool& tool, const std::string& text) {
    complain(tool.name, text + " (" + tool.name + " -h shows the usage)");
    return exitWrongUse;
}

// False where help or the version was asked for and all is done.
bool parse(CLI::App& app, const Tool& tool, int argc, char* argv[]) {
    try {
        app.parse(argc, argv);
        return true;
    } catch (const CLI::CallForHelp&) {
        print(tool.usage);
        return false;
    } catch (const CLI::CallForVersion& version) {
        print(version.what());
        return false;
    }
}

int run(const Tool& tool) {
    (void)ORV_Sysloglevel_registerModul(tool.name);
    ORV_Sysloglevel_changeTracelevel(tool.name, 0);
    return tool.run();
}

int parseAndRun(const Tool& tool, int argc, char* argv[]) {
    CLI::App app;
    try {
        tool.define(app);
        return parse(app, tool, argc, argv) ? run(tool) : exitDone;
    } catch (const ReaderGone&) {
        return exitDone;
    } catch (const CLI::Error& error) {
        return wrongUse(tool, describe(app, error));
    } catch (const WrongUse& error) {
        return wrongUse(tool, error.what());
    }
}

} // namespace

int runTool(const Tool& tool, int argc, char* argv[]) {
    orv::error::endOnLackOfMemory(tool.name);
    ORV_Daemon_occupyStandardStreams();
    try {
        return parseAndRun(tool, argc, argv);
    } catch (const std::bad_alloc&) {
        complain(tool.name, "out of memory");
    } catch (const std::exception& error) {
        complain(tool.name, error.what());
    }
    return tool.refused;
}

void complain(const char* tool, const std::string& text) {
    std::cerr << tool << ": " << printable(text.substr(0, complaintLimit)) << std::endl;
}

} // namespace tools
