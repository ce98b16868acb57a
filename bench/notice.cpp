// From a commit in one process to configChanged() in another, beside the round trip of a bare socket.
//
// bench_notice SOCKET TIMES

#include "bench/samples.h"
#include "cfg/configclient.h"
#include "cfg/connection.h"
#include "cfg/notificationhandler.h"
#include "velta/net/eventdispatcher.h"

#include <csignal>
#include <cstdlib>
#include <functional>
#include <stdexcept>

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using bench::Clock;
using orv::cfg::common::IConfigClient;

constexpr const char* table = "WlanGlobals";
constexpr unsigned answerTimeout = 60;    // seconds
constexpr unsigned transactionWait = 500; // milliseconds
constexpr unsigned eventWait = 2000;      // milliseconds

void check(bool good, const char* what) {
    if (!good)
        throw std::runtime_error(what);
}

// A process of its own, at the other end of a socket; gone with this object.
class Other {
public:
    explicit Other(const std::function<void(int socket)>& run) {
        int ends[2];
        check(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0, "socketpair");
        process_ = fork();
        check(process_ >= 0, "fork");
        if (process_ == 0) {
            close(ends[0]);
            run(ends[1]);
            _exit(EXIT_SUCCESS);
        }
        close(ends[1]);
        socket_ = ends[0];
    }
    ~Other() {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
        close(socket_);
    }
    Other(const Other&) = delete;
    Other& operator=(const Other&) = delete;

    int socket() const { return socket_; }

private:
    pid_t process_;
    int socket_ = -1;
};

// Says through its socket when it was told.
class Told : public orv::cfg::IConfigHandler {
public:
    explicit Told(int socket) : socket_(socket) {}

    void getTables(std::list<std::string>& tables) override { tables.emplace_back(table); }
    bool configChanged(IConfigClient&, const std::string&) override {
        const Clock::time_point now = Clock::now();
        return write(socket_, &now, sizeof now) == sizeof now;
    }
    void process(IConfigClient&) override {}

private:
    int socket_;
};

// As in the daemon's loop.
void follow(const std::string& store, int socket) {
    velta::net::EventDispatcher dispatcher;
    orv::cfg::NotificationHandler notifications(store, dispatcher, "bench", true, answerTimeout,
                                                transactionWait, true, false);
    Told told(socket);
    notifications.registerConfigHandler(&told);
    notifications.initialize();
    while (notifications.connected()) {
        dispatcher.handleEvents(eventWait);
        notifications.process();
    }
}

Clock::time_point toldAt(const Other& follower) {
    Clock::time_point moment;
    check(read(follower.socket(), &moment, sizeof moment) == sizeof moment, "the follower is gone");
    return moment;
}

void timeNotices(const std::string& store, int times) {
    const Other follower([&](int socket) { follow(store, socket); });
    (void)toldAt(follower); // the first reading
    orv::cfg::Connection connection(store, "bench", answerTimeout);
    check(connection.open().ok(), "the store does not answer");
    orv::cfg::ConfigClient client(connection, transactionWait);

    bench::Samples fromSent;
    bench::Samples fromAnswered;
    for (int i = 0; i < times; ++i) {
        velta::Value value(velta::Value::Switch);
        value.setInteger(i % 2 == 0 ? 1 : 0);
        velta::ValueList values;
        values.add("AlwaysEnable", value);
        check(client.startTransaction().ok() && client.writeSingleRow(table, 0, values).ok(), "no write");
        const Clock::time_point sent = Clock::now();
        check(client.closeTransaction().ok(), "no commit");
        const Clock::time_point answered = Clock::now();
        const Clock::time_point told = toldAt(follower);
        fromSent.add(bench::nanoseconds(told - sent));
        fromAnswered.add(bench::nanoseconds(told - answered));
    }
    fromAnswered.print("commit answered to configChanged", "horad", "us", 1e-3);
    fromSent.print("commit sent to configChanged", "horad", "us", 1e-3);
}

void timeRoundTrips(int times) {
    const Other echo([](int socket) {
        char byte = 0;
        while (read(socket, &byte, 1) == 1)
            (void)!write(socket, &byte, 1);
    });
    bench::Samples samples;
    for (int i = 0; i < times; ++i) {
        char byte = 0;
        const Clock::time_point begin = Clock::now();
        check(write(echo.socket(), &byte, 1) == 1 && read(echo.socket(), &byte, 1) == 1, "no echo");
        samples.add(bench::nanoseconds(Clock::now() - begin));
    }
    samples.print("round trip", "socket", "us", 1e-3);
}

} // namespace

int main(int argc, char* argv[]) {
    if (argc != 3) {
        std::fputs("Usage: bench_notice SOCKET TIMES\n", stderr);
        return EXIT_FAILURE;
    }
    try {
        timeRoundTrips(std::atoi(argv[2]));
        timeNotices(argv[1], std::atoi(argv[2]));
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "bench_notice: %s\n", exception.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
