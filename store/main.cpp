#include "orv/daemon.h"
#include "orv/error.h"
#include "orv/lackofmemory.h"
#include "orv/servicenotice.h"
#include "store/cluster/cluster.h"
#include "store/cluster/clusterschema.h"
#include "store/cluster/leaving.h"
#include "store/cluster/remote.h"
#include "store/fileid.h"
#include "store/log.h"
#include "store/options.h"
#include "store/server/activatedsocket.h"
#include "store/server/listeningsocket.h"
#include "store/server/server.h"
#include "store/server/socketwatch.h"
#include "store/storage/database.h"
#include "store/storage/schema.h"
#include "store/storage/sqlite.h"
#include "velta/net/eventdispatcher.h"
#include "velta/text.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <iostream>
#include <memory>
#include <new>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr const char* programName = "cfgserver";
constexpr const char* pidFileDirectory = "/var/run";
constexpr auto shutDownPatience = std::chrono::seconds(1);
constexpr auto leavingPatience = std::chrono::seconds(15);
constexpr unsigned noticeInterval = 1000; // milliseconds between two attempts to tell the service manager

// In daemon mode: holds the pid file, and tells the parent process when the server is up. Does nothing in the
// foreground.
class DaemonMode {
public:
    DaemonMode() = default;
    DaemonMode(const DaemonMode&) = delete;
    DaemonMode& operator=(const DaemonMode&) = delete;
    ~DaemonMode() { ORV_Daemon_deletePidFile(&daemon_); }

    // Returns only in the daemon process. It ignores SIGHUP and SIGUSR1: it has no terminal that could hang
    // up, and no use for the signals.
    void enter() {
        logs_ = true;
        for (const int signal : {SIGHUP, SIGUSR1})
            (void)std::signal(signal, SIG_IGN);
        ORV_Daemon_construct(&daemon_, programName, pidFileDirectory);
        if (ORV_Daemon_occupiedPidFile(&daemon_) != 0)
            throw std::runtime_error("a daemon is running already, it holds the pid file in " +
                                     std::string(pidFileDirectory));
        if (ORV_Daemon_daemonize(&daemon_) != 0) {
            const int error = errno;
            throw std::system_error(error, std::generic_category(),
                                    std::string("can't become a daemon: ") + daemon_.failedStep);
        }
        entered_ = true;
    }

    // The server is up: the parent process may exit.
    void ready() {
        if (entered_ && ORV_Daemon_createPidFile(&daemon_) != 0)
            throw std::system_error(errno, std::generic_category(), "pid file");
    }

    void report(const std::string& reason) {
        const std::string line = velta::onOneLine(std::string(programName) + ": " + reason);
        ORV_Daemon_reportFailure(&daemon_, line.c_str());
        if (logs_)
            store::log::error(reason);
    }

private:
    ORV_Daemon daemon_;
    bool logs_ = false; // whether the log goes elsewhere than standard error, where failures are reported
    bool entered_ = false;
};

// Turns the signals that end the server into an event.
class StopSignals {
public:
    StopSignals(velta::net::EventDispatcher& dispatcher, bool inDaemon) : dispatcher_(dispatcher) {
        sigset_t signals;
        sigemptyset(&signals);
        for (const int signal : {SIGTERM, SIGINT, SIGQUIT})
            sigaddset(&signals, signal);
        if (!inDaemon)
            sigaddset(&signals, SIGHUP);
        sigprocmask(SIG_BLOCK, &signals, nullptr);
        descriptor_ = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
        if (descriptor_ < 0)
            throw std::system_error(errno, std::generic_category(), "signalfd");
        dispatcher_.add(descriptor_, velta::net::EventDispatcher::Readable, [this](unsigned) { onSignal(); });
    }
    ~StopSignals() {
        dispatcher_.remove(descriptor_);
        close(descriptor_);
    }
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    bool arrived() const { return arrived_; }

private:
    void onSignal() {
        signalfd_siginfo signal{};
        if (read(descriptor_, &signal, sizeof signal) != sizeof signal)
            return;
        arrived_ = true;
        store::log::info("ends on signal " + std::to_string(signal.ssi_signo));
    }

    velta::net::EventDispatcher& dispatcher_;
    int descriptor_ = -1;
    bool arrived_ = false;
};

store::Schema readSchema(const store::Options& options) {
    store::Schema schema;
    schema.add(store::defaultSchema(), "built-in");
    for (const std::string& file : options.schemas)
        schema.addFile(file);
    if (options.printsClusterSchema || !options.cluster.empty())
        if (const std::string complaint = store::complaintOfSharedTables(schema); !complaint.empty())
            throw std::runtime_error("can't be shared: " + complaint);
    return schema;
}

// Whether both paths lead to the same file. Links are followed: an old place may be one to the new.
bool leadToOneFile(const std::string& one, const std::string& other) {
    struct stat first {};
    struct stat second {};
    return one == other || (stat(one.c_str(), &first) == 0 && stat(other.c_str(), &second) == 0 &&
                            store::FileId(first) == store::FileId(second));
}

// A setting without effect would mislead whoever made it.
void checkAgainst(const store::ActivatedSocket& activated, const store::Options& options) {
    if (options.socketIsGiven && !leadToOneFile(options.socket, activated.path))
        throw std::runtime_error("-s names " + options.socket +
                                 ", but the service manager has passed the socket " + activated.path +
                                 ": leave out -s, or have the manager pass the other");
}

using Activated = std::optional<store::ActivatedSocket>;

store::ListeningSocket listeningSocket(const store::Options& options, Activated activated) {
    if (activated)
        return store::ListeningSocket(std::move(*activated));
    return store::ListeningSocket(options.socket, options.group);
}

std::function<double()> randomParts() {
    return [engine = std::mt19937(std::random_device()())]() mutable {
        return std::uniform_real_distribution<double>(0, 1)(engine);
    };
}

std::vector<store::Remote> remotesOf(const store::Options& options) {
    std::vector<store::Remote> remotes;
    std::string complaint; // the command line was checked
    for (const std::string& text : options.cluster)
        remotes.push_back(*store::remoteOf(text, complaint));
    return remotes;
}

store::Cluster::Times clusterTimes() {
    store::Cluster::Times times;
    times.pace.random = randomParts();
    return times;
}

// Without remotes the tables are this device's own, also those that were shared before.
std::unique_ptr<store::Cluster>
clusterOf(const store::Options& options, velta::net::EventDispatcher& dispatcher, store::Database& database) {
    if (options.cluster.empty()) {
        bool didFollow = false;
        if (const auto result = database.sharedRows().forget(didFollow); !result.ok())
            throw std::runtime_error("can't forget the cluster that was followed: " + result.strerror());
        if (didFollow)
            store::log::warning(
                "follows no cluster any more: the tables that were shared are this device's own");
        return nullptr;
    }
    return std::make_unique<store::Cluster>(dispatcher, database, remotesOf(options), clusterTimes());
}

void leaveCluster(const store::Options& options, store::Schema schema) {
    velta::net::EventDispatcher dispatcher;
    store::Database database(std::move(schema), options.database);
    const std::string complaint =
        store::leaveCluster(dispatcher, database, remotesOf(options), clusterTimes(), leavingPatience);
    if (!complaint.empty())
        throw std::runtime_error("can't leave the cluster: " + complaint);
    store::log::info("has left the cluster: the tables that were shared are this device's own");
}

// Serves until a signal arrives. A service manager whose queue is full hears a moment later that the server
// is up.
void serveUntilStopped(store::Server& server, const StopSignals& stop, const std::string& status) {
    const std::string ready = "READY=1\nSTATUS=" + velta::onOneLine(status);
    for (bool told = false; !stop.arrived();) {
        told = told || orv::tellServiceManager(ready);
        server.handleEvents(told ? UINT_MAX : noticeInterval);
    }
    (void)orv::tellServiceManager("STOPPING=1");
}

void serve(const store::Options& options, Activated activated, store::Schema schema, DaemonMode& daemon) {
    velta::net::EventDispatcher dispatcher;
    StopSignals stop(dispatcher, options.daemon);
    store::Database database(std::move(schema), options.database);
    store::ListeningSocket socket = listeningSocket(options, std::move(activated));
    store::ServerOptions serverOptions;
    serverOptions.group = options.group;
    const std::unique_ptr<store::Cluster> cluster = clusterOf(options, dispatcher, database);
    store::Server server(dispatcher, database, socket, serverOptions, cluster.get());
    const store::SocketWatch socketWatch(dispatcher, socket);
    daemon.ready();
    const std::string status =
        "serves " + std::to_string(database.schema().tables().size()) + " tables at " + socket.path();
    store::log::info(status + " from " +
                     (options.database.empty() ? "memory: they are lost when it ends" : options.database));
    serveUntilStopped(server, stop, status);
    server.shutDown(shutDownPatience);
}

void run(const store::Options& options, DaemonMode& daemon) {
    if (options.printsClusterSchema) {
        std::cout << store::clusterSchemaOf(readSchema(options)).dump(2) << std::endl;
        return;
    }
    if (options.leavesCluster) {
        store::log::open(options.verbose, options.daemon);
        return leaveCluster(options, readSchema(options));
    }
    Activated activated = store::takeActivatedSocket();
    if (activated)
        checkAgainst(*activated, options);
    if (options.daemon)
        ORV_Daemon_closeInheritedDescriptors(activated ? activated->descriptor.get() : -1);
    store::log::open(options.verbose, options.daemon);
    orv::error::DefaultAssertHook assertions;
    assertions.setSyslog(options.daemon);
    store::expectOneThread();
    store::Schema schema = readSchema(options);
    if (options.daemon)
        daemon.enter();
    serve(options, std::move(activated), std::move(schema), daemon);
}

} // namespace

int main(int argumentCount, char** arguments) {
    orv::error::endOnLackOfMemory(programName);
    ORV_Daemon_occupyStandardStreams();
    // A write to a closed standard error, or beyond the file size limit, is to fail and not to kill the
    // server.
    (void)std::signal(SIGPIPE, SIG_IGN);
    (void)std::signal(SIGXFSZ, SIG_IGN);
    int exitStatus = 0;
    DaemonMode daemon;
    try {
        if (const auto options = store::readOptions(argumentCount, arguments, exitStatus))
            run(*options, daemon);
    } catch (const std::bad_alloc&) {
        daemon.report("out of memory");
        return 1;
    } catch (const std::exception& error) {
        daemon.report(error.what());
        return 1;
    }
    return exitStatus;
}
