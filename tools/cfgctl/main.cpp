// cfgctl: looks into the configuration store and changes it.

#include "cfg/configclient.h"
#include "cfg/connection.h"
#include "tools/cfgctl/cluster.h"
#include "tools/cfgctl/commands.h"
#include "tools/cfgctl/watch.h"
#include "tools/commandline.h"
#include "tools/output.h"
#include "tools/storetables.h"

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

namespace {

using tools::answerTimeout;
using tools::cfgctl::Arguments;
using tools::cfgctl::MemberArguments;

constexpr int exitRefused = 1;

constexpr unsigned transactionWait = 10000; // milliseconds

constexpr const char* usage =
    R"(Usage: cfgctl [-s SOCKET] [--json] COMMAND

  tables                         The tables and how many rows they have
  columns TABLE                  What the cells of a table may hold
  show TABLE[.ID]                All rows of a table, or one
  get TABLE[.ID] COLUMN          One value
  set TABLE[.ID] COLUMN=VALUE... Change values of a row, all at once
  add TABLE COLUMN=VALUE...      Add a row; prints its Id
  remove TABLE.ID                Remove a row
  watch [--no-time] [TABLE...]   Print every change until interrupted
  dump [TABLE...]                Tables as JSON
  load FILE                      Make tables what a dump says ("-" is standard input)
  cluster COMMAND                Members of a cluster that shares tables with other stores:
    create [--schema FILE]... DIR LOCAL  Make the file of the first member
    join DIR LOCAL REMOTE...             Make the file of a further member
    status [DIR]                         Who leads, who follows, who is not connected
    leave DIR                            Have the cluster go on without this member

  -s, --socket SOCKET  Where the store listens (/tmp/cfgserver.socket)
      --json           Print JSON
      --version        Print the version
  -h, --help           Print this help

A table that has a single row is named without ".ID". A member lies in a folder DIR
(/var/lib/horad-cluster); LOCAL and REMOTE are addresses of members like tcp:192.168.1.2:6641.
)";

using StoreCommand = std::string (*)(orv::cfg::ConfigClient&, const Arguments&);
using Command = std::function<void(const Arguments&)>;
using Keep = std::function<void(const Command&)>;

Command onStore(StoreCommand command) {
    return [command](const Arguments& arguments) {
        orv::cfg::Connection connection(arguments.socket, tools::cfgctl::programName, answerTimeout);
        tools::connect(connection, arguments.socket);
        orv::cfg::ConfigClient client(connection, transactionWait);
        tools::print(command(client, arguments));
    };
}

Command onMember(std::string (*command)(const Arguments&)) {
    return [command](const Arguments& arguments) { tools::print(command(arguments)); };
}

// The commands behind "cluster".
void defineMemberCommands(CLI::App& cluster, MemberArguments& member, const Keep& keep) {
    cluster.require_subcommand(1);
    cluster.fallthrough();
    const auto add = [&](const char* name, std::string (*function)(const Arguments&)) {
        CLI::App* const definition = cluster.add_subcommand(name);
        definition->callback([keep, function] { keep(onMember(function)); });
        return definition;
    };
    CLI::App* const create = add("create", tools::cfgctl::createCommand);
    create->add_option("--schema", member.schemas)->allow_extra_args(false);
    CLI::App* const join = add("join", tools::cfgctl::joinCommand);
    for (CLI::App* const maker : {create, join}) {
        maker->add_option("DIR", member.folder)->required();
        maker->add_option("LOCAL", member.address)->required();
    }
    join->add_option("REMOTE", member.others)->required();
    add("status", tools::cfgctl::statusCommand)->add_option("DIR", member.folder);
    add("leave", tools::cfgctl::leaveCommand)->add_option("DIR", member.folder)->required();
}

// The command line's grammar; which command was given comes out in `command`.
void defineCommands(CLI::App& app, Arguments& arguments, Command& command) {
    app.require_subcommand(1);
    app.fallthrough(); // options may stand behind the command too
    app.add_option("-s,--socket", arguments.socket);
    app.add_flag("--json", arguments.json);
    app.set_version_flag("--version", std::string(tools::cfgctl::programName) + " " HORAD_VERSION "\n");
    const auto add = [&](const char* name, const Command& function) {
        CLI::App* const definition = app.add_subcommand(name);
        definition->callback([&command, function] { command = function; });
        return definition;
    };
    const auto addWithTable = [&](const char* name, const Command& function) {
        CLI::App* const definition = add(name, function);
        definition->add_option("TABLE", arguments.target.table)->required();
        return definition;
    };
    const auto addWithTarget = [&](const char* name, const Command& function,
                                   tools::cfgctl::Target (*parse)(const std::string&)) {
        CLI::App* const definition = add(name, function);
        const auto keep = [&arguments, parse](const std::string& text) { arguments.target = parse(text); };
        definition->add_option_function<std::string>("TABLE[.ID]", keep)->required();
        return definition;
    };
    using Texts = std::vector<std::string>;
    const auto keepCells = [&](const Texts& texts) { arguments.cells = tools::cfgctl::parseCells(texts); };
    const auto addCells = [&](CLI::App* definition) {
        definition->add_option_function<Texts>("COLUMN=VALUE", keepCells)->required();
    };

    add("tables", onStore(tools::cfgctl::listCommand));
    addWithTable("columns", onStore(tools::cfgctl::columnsCommand));
    addWithTarget("show", onStore(tools::cfgctl::showCommand), tools::cfgctl::parseTarget);
    CLI::App* const get =
        addWithTarget("get", onStore(tools::cfgctl::getCommand), tools::cfgctl::parseTarget);
    get->add_option("COLUMN", arguments.column)->required();
    addCells(addWithTarget("set", onStore(tools::cfgctl::setCommand), tools::cfgctl::parseTarget));
    addCells(addWithTable("add", onStore(tools::cfgctl::addCommand)));
    addWithTarget("remove", onStore(tools::cfgctl::removeCommand), tools::cfgctl::parseRowTarget);
    CLI::App* const watch = add("watch", tools::cfgctl::watchCommand);
    watch->add_option("TABLES", arguments.tables);
    watch->add_flag("!--no-time", arguments.time);
    add("dump", onStore(tools::cfgctl::dumpCommand))->add_option("TABLES", arguments.tables);
    add("load", onStore(tools::cfgctl::loadCommand))->add_option("FILE", arguments.file)->required();
    defineMemberCommands(*app.add_subcommand("cluster"), arguments.member,
                         [&command](const Command& given) { command = given; });
}

} // namespace

int main(int argc, char* argv[]) {
    Arguments arguments;
    Command command;
    const auto define = [&](CLI::App& app) { defineCommands(app, arguments, command); };
    const auto run = [&] {
        command(arguments);
        return tools::exitDone;
    };
    return tools::runTool({tools::cfgctl::programName, usage, exitRefused, define, run}, argc, argv);
}
