// horad: carries out the time-controlled parts of the router's configuration.

#include "horad.h"
#include "log.h"
#include "options.h"
#include "orv/daemon.h"
#include "orv/lackofmemory.h"
#include "orv/servicenotice.h"
#include "orv/stop.h"
#include "velta/net/eventdispatcher.h"

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <functional>
#include <string>

#include <cfg/notificationhandler.h> // quotes would find the one beside this file, but firmware may bring its own
#include <malloc.h>

namespace {

using orv::horad::Logger;
using orv::horad::Options;

constexpr const char* daemonName = "horad";
constexpr const char* pidFileDirectory = "/var/run";
constexpr const char* storeSocket = "/tmp/cfgserver.socket";

// How the store is followed, see NotificationHandler.
constexpr bool reconnect = true;
constexpr unsigned answerTimeout = 60;    // seconds
constexpr unsigned transactionWait = 500; // milliseconds
constexpr bool mergeChanges = true;
constexpr bool leaveOutOwnChanges = false;

constexpr unsigned connectInterval = 100000; // microseconds
constexpr int stopSignals[] = {SIGINT, SIGTERM, SIGQUIT};
// What is sent to daemons in general, to make them read their configuration or log file anew.
constexpr int ignoredSignals[] = {SIGHUP, SIGUSR1};

Options options;
ORV_Daemon pidFile;
volatile std::sig_atomic_t running = 1;
const orv::Stop* volatile stopRequest = nullptr; // while run() waits for something

extern "C" void onStopSignal(int) {
    Logger::debugFromSignal("Signal received");
    running = 0;
    if (stopRequest != nullptr)
        stopRequest->request();
}

// A write to a closed socket must not end the process.
extern "C" void onBrokenPipe(int) {
    Logger::warningFromSignal("Received SIGPIPE");
}

// glibc raises this threshold with each large block that is freed. Fixed, the rows of a reading go back to
// the system and leave no holes between the plans. Other C libraries, musl for one, have no such threshold.
void fixLargestHeapBlock() {
#ifdef __GLIBC__
    constexpr int largestHeapBlock = 128 * 1024; // bytes
    (void)mallopt(M_MMAP_THRESHOLD, largestHeapBlock);
#endif
}

void installHandler(int signal, void (*handler)(int)) {
    struct sigaction action = {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    (void)sigaction(signal, &action, nullptr); // can't fail for the signals of this program
}

// Holds the stop signals back: whoever started the daemon may send one from the moment on when the pid file
// is there.
class StopSignalsHeld {
public:
    StopSignalsHeld() {
        sigemptyset(&signals_);
        for (const int signal : stopSignals)
            sigaddset(&signals_, signal);
        (void)sigprocmask(SIG_BLOCK, &signals_, nullptr);
    }
    ~StopSignalsHeld() { (void)sigprocmask(SIG_UNBLOCK, &signals_, nullptr); }
    StopSignalsHeld(const StopSignalsHeld&) = delete;
    StopSignalsHeld& operator=(const StopSignalsHeld&) = delete;

private:
    sigset_t signals_;
};

constexpr const char* alreadyRunning = "horad is already running";

// The log and whoever started the daemon are told.
void reportFailure(const std::string& reason) {
    Logger::instance().error("%s", reason.c_str());
    ORV_Daemon_reportFailure(&pidFile, reason.c_str());
}

// False when there is nothing left to run: the reason is reported.
bool becomeDaemon() {
    ORV_Daemon_closeInheritedDescriptors();
    Logger::instance().enableSyslog();
    ORV_Daemon_construct(&pidFile, daemonName, pidFileDirectory);
    if (ORV_Daemon_occupiedPidFile(&pidFile) != 0) {
        reportFailure(alreadyRunning);
        return false;
    }
    if (ORV_Daemon_daemonize(&pidFile) != 0) {
        const std::string why = std::strerror(errno);
        reportFailure(std::string("Could not become a daemon: ") + pidFile.failedStep + ": " + why);
        return false;
    }
    return true;
}

// From the pid file on, whoever started the daemon may stop it.
bool announceDaemon() {
    const StopSignalsHeld held;
    if (ORV_Daemon_createPidFile(&pidFile) != 0) {
        if (errno == EWOULDBLOCK) // another start was faster
            Logger::instance().error("%s", alreadyRunning);
        else
            Logger::instance().error("Could not write the pid file: %s", std::strerror(errno));
        return false;
    }
    for (const int signal : stopSignals)
        installHandler(signal, onStopSignal);
    installHandler(SIGPIPE, onBrokenPipe);
    for (const int signal : ignoredSignals)
        installHandler(signal, SIG_IGN);
    return true;
}

// While one lives, a stop signal ends whatever waits for a request to stop.
class StopOnSignal {
public:
    StopOnSignal() { stopRequest = &stop_; }
    ~StopOnSignal() { stopRequest = nullptr; }
    StopOnSignal(const StopOnSignal&) = delete;
    StopOnSignal& operator=(const StopOnSignal&) = delete;

    const orv::Stop& request() const { return stop_; }

private:
    orv::Stop stop_;
};

// What a service manager shows of the daemon. It is told what has changed. What its full queue does not take
// is tried again with the next call.
class ServiceStatus {
public:
    explicit ServiceStatus(std::size_t tables) {
        (void)std::snprintf(following_, sizeof following_, "following %zu table%s", tables,
                            tables == 1 ? "" : "s");
    }
    ~ServiceStatus() { (void)orv::tellServiceManager("STOPPING=1"); }
    ServiceStatus(const ServiceStatus&) = delete;
    ServiceStatus& operator=(const ServiceStatus&) = delete;

    // The next text goes out together with the message that the daemon is up.
    void ready() { ready_ = "READY=1\n"; }
    void showWaiting() { show("waiting for the store"); }
    // `text` is a constant, or null where there is nothing special to tell.
    void showWorking(const char* text) { show(text != nullptr ? text : following_); }

private:
    void show(const char* text) noexcept {
        if (text == shown_)
            return;
        char message[80]; // all texts are short
        const int length = std::snprintf(message, sizeof message, "%sSTATUS=%s", ready_, text);
        if (!orv::tellServiceManager({message, static_cast<std::size_t>(length)}))
            return;
        ready_ = "";
        shown_ = text;
    }

    char following_[40];
    const char* ready_ = "";
    const char* shown_ = nullptr; // texts are told apart by their place
};

// The store over its socket.
class SocketLink : public orv::horad::StoreLink {
public:
    SocketLink(velta::net::EventDispatcher& dispatcher, orv::cfg::NotificationHandler& notifications,
               ServiceStatus& status)
        : dispatcher_(dispatcher), notifications_(notifications), status_(status) {}

    void wait(unsigned milliseconds) override { dispatcher_.handleEvents(milliseconds); }
    // Connects again where the store was lost. It may listen without an answer, and be waited for.
    void deliver() override {
        if (!notifications_.connected())
            status_.showWaiting();
        notifications_.process();
    }
    void pass(const std::function<void(orv::cfg::common::IConfigClient&)>& run) override {
        notifications_.pass(run);
    }
    orv::cfg::common::IConfigClient& client() override { return notifications_.getConfigClient(); }

private:
    velta::net::EventDispatcher& dispatcher_;
    orv::cfg::NotificationHandler& notifications_;
    ServiceStatus& status_;
};

// Everything that runs is built here, in this order, and taken down in reverse.
void run(orv::horad::CountedRepeats& repeats) {
    const StopOnSignal stop;
    orv::StoppableSystem system(orv::System::real(), stop.request());
    velta::net::EventDispatcher dispatcher;
    orv::cfg::NotificationHandler notifications(storeSocket, dispatcher, daemonName, reconnect, answerTimeout,
                                                transactionWait, mergeChanges, leaveOutOwnChanges);
    notifications.stopOn(stop.request().descriptor());
    orv::horad::Horad horad(
        options.tables, options.repeatDelay, options.verbose,
        [&notifications](orv::cfg::IConfigHandler* handler) { notifications.registerConfigHandler(handler); },
        system);
    ServiceStatus status(options.tables.size());
    status.showWaiting();
    while (running != 0 && !notifications.initialized()) {
        notifications.initialize();
        system.sleep(connectInterval);
        repeats.tell();
    }
    SocketLink store(dispatcher, notifications, status);
    if (!options.daemon) // a daemon is up when its pid file is there
        status.ready();
    while (running != 0) {
        if (notifications.connected())
            status.showWorking(horad.status());
        horad.iterate(store);
        repeats.tell();
    }
}

} // namespace

int main(int argc, char* argv[]) {
    orv::error::endOnLackOfMemory(daemonName);
    fixLargestHeapBlock();
    ORV_Daemon_occupyStandardStreams();
    switch (orv::horad::parseOptions(argc, argv, options)) {
    case orv::horad::OptionsResult::Run:
        break;
    case orv::horad::OptionsResult::Help:
        return EXIT_SUCCESS;
    case orv::horad::OptionsResult::Wrong:
        return EXIT_FAILURE;
    }
    if (options.tables.empty()) {
        Logger::instance().error("You have to specify at least one table (with -t TABLE)");
        return EXIT_FAILURE;
    }
    if (options.verbose)
        Logger::instance().setVerbose(true);
    if (options.daemon && !(becomeDaemon() && announceDaemon()))
        return EXIT_FAILURE;
    orv::horad::CountedRepeats repeats;
    try {
        run(repeats);
    } catch (const std::exception& exception) {
        Logger::instance().error("%s", exception.what());
    } catch (...) {
        Logger::instance().error("Unknown exception");
    }
    ORV_Daemon_deletePidFile(&pidFile);
    return EXIT_SUCCESS;
}
