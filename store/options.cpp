#include "store/options.h"

#include "orv/standarderror.h"
#include "store/cluster/remote.h"
#include "velta/text.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <filesystem>
#include <system_error>

#include <grp.h>

namespace store {

namespace {

constexpr int wrongUse = 2;
constexpr gid_t noGroup = static_cast<gid_t>(-1); // to the kernel, "leave it as it is"

// A group's number, from its name or the number itself.
std::optional<gid_t> groupNamed(const std::string& name) {
    if (const group* entry = getgrnam(name.c_str()); entry != nullptr)
        return entry->gr_gid;
    gid_t number = 0;
    const char* const end = name.data() + name.size();
    const auto [stop, error] = std::from_chars(name.data(), end, number);
    const bool read = error == std::errc() && stop == end && !name.empty();
    return read && number != noGroup ? std::optional<gid_t>(number) : std::nullopt;
}

std::string checkGroup(const std::string& name) {
    return groupNamed(name) ? std::string() : "there is no group " + name;
}

std::string checkPath(const std::string& path) {
    return path.empty() ? "an empty path" : "";
}

std::string checkRemote(const std::string& text) {
    std::string complaint;
    return remoteOf(text, complaint) ? std::string() : complaint;
}

void makeRemoteAbsolute(std::string& remote) {
    const std::string scheme = "unix:";
    if (remote.compare(0, scheme.size(), scheme) == 0)
        remote = scheme + std::filesystem::absolute(remote.substr(scheme.size())).string();
}

void makeAbsolute(std::string& path) {
    if (!path.empty())
        path = std::filesystem::absolute(path);
}

} // namespace

std::optional<Options> readOptions(int argumentCount, char** arguments, int& exitStatus) {
    Options options;
    std::string group;
    CLI::App app("Serves configuration tables to the clients of a socket.", "cfgserver");
    app.add_option(
           "-s,--socket", options.socket,
           "The socket's path. A socket that the service manager passes is served instead, and -s may "
           "then lead to no other")
        ->check(checkPath)
        ->capture_default_str();
    CLI::Option* const file = app.add_option("-f,--file", options.database,
                                             "The database file; without it the tables are in memory")
                                  ->check(checkPath);
    app.add_option("--schema", options.schemas, "An SQL file with tables besides the built-in ones")
        ->check(checkPath)
        ->allow_extra_args(false);
    app.add_option("-g,--group", group, "A group whose members may connect")->check(checkGroup);
    CLI::Option* const cluster =
        app.add_option("--cluster", options.cluster,
                       "A member of the cluster through which the shared columns are shared: unix:PATH or "
                       "tcp:ADDRESS:PORT; several of them are tried in turn")
            ->check(checkRemote)
            ->allow_extra_args(false);
    app.add_flag("--cluster-schema", options.printsClusterSchema,
                 "Print the schema that a cluster for these tables has, and end");
    CLI::Option* const daemon =
        app.add_flag("-d,--daemon", options.daemon, "Run as a daemon, log to the system log");
    app.add_flag("--leave-cluster", options.leavesCluster,
                 "Take this device out of its cluster, keep the tables, and end; its store must not run")
        ->needs(file, cluster)
        ->excludes(daemon);
    app.add_flag("-v,--verbose", options.verbose, "Log debug lines too");
    app.set_version_flag("--version", "cfgserver " HORAD_VERSION, "Print the version");
    app.failure_message([](const CLI::App*, const CLI::Error& error) {
        const std::string severity = orv::isJournalOnStandardError() ? "<3>" : "";
        return severity + "cfgserver: " + velta::onOneLine(error.what()) +
               " (cfgserver -h shows the usage)\n";
    });
    try {
        app.parse(argumentCount, arguments);
    } catch (const CLI::ParseError& error) {
        exitStatus = app.exit(error) == 0 ? 0 : wrongUse;
        return std::nullopt;
    }
    if (!group.empty())
        options.group = groupNamed(group);
    options.socketIsGiven = app.count("--socket") != 0;
    makeAbsolute(options.socket);
    makeAbsolute(options.database);
    for (std::string& schema : options.schemas)
        makeAbsolute(schema);
    for (std::string& remote : options.cluster)
        makeRemoteAbsolute(remote);
    return options;
}

} // namespace store
