// From exec to the first status that horad writes, and from SIGTERM to its end, beside those of a bare loop.
//
// bench_startstop STORE HORAD BARELOOP TIMES   in a store with a table TimePlans whose row 1 is to be active

#include "bench/samples.h"
#include "cfg/configclient.h"
#include "cfg/connection.h"

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using bench::Clock;

constexpr const char* table = "TimePlans";
constexpr const char* pidFile = "/var/run/horad";
constexpr const char* loopSocket = "/tmp/bareloop.socket";
constexpr unsigned answerTimeout = 60;    // seconds
constexpr unsigned transactionWait = 500; // milliseconds
constexpr int patience = 20000;           // milliseconds

void check(bool good, const std::string& what) {
    if (!good)
        throw std::runtime_error(what);
}

void await(int descriptor, const char* what) {
    pollfd waiting{descriptor, POLLIN, 0};
    check(poll(&waiting, 1, patience) == 1, std::string("in vain for ") + what);
}

pid_t start(std::vector<const char*> words) {
    words.push_back(nullptr);
    const pid_t process = vfork();
    if (process == 0) {
        execv(words[0], const_cast<char* const*>(words.data()));
        _exit(127);
    }
    check(process > 0, "fork");
    return process;
}

// Nanoseconds until the process is gone.
double end(pid_t process) {
    const int descriptor = static_cast<int>(syscall(SYS_pidfd_open, process, 0));
    check(descriptor >= 0, "pidfd_open");
    const Clock::time_point begin = Clock::now();
    check(kill(process, SIGTERM) == 0, "kill");
    await(descriptor, "the end of a process");
    const Clock::time_point gone = Clock::now();
    close(descriptor);
    return bench::nanoseconds(gone - begin);
}

class Store {
public:
    explicit Store(const std::string& socket)
        : connection_(socket, "bench", answerTimeout), client_(connection_, transactionWait) {
        check(connection_.open().ok(), "the store does not answer");
        velta::protocol::Request request;
        request.kind = velta::protocol::RequestKind::Subscribe;
        request.number = 1; // leaves out own changes
        request.names = {table};
        velta::protocol::Reply reply;
        check(connection_.exchange(request, reply).ok(), "no subscription");
    }

    void resetStatus() {
        velta::ValueList values;
        values.add("TimePlanStatus", velta::Value(velta::Value::Switch));
        check(client_.startTransaction().ok() && client_.updateRow(table, "Id", "1", values).ok() &&
                  client_.closeTransaction().ok(),
              "no status");
        (void)connection_.takeNotices();
    }
    void awaitStatus() {
        do {
            await(connection_.descriptor(), "a status");
            connection_.receive();
            check(connection_.isOpen(), "the store is gone");
        } while (connection_.takeNotices().empty());
    }

private:
    orv::cfg::Connection connection_;
    orv::cfg::ConfigClient client_;
};

void timeHorad(Store& store, const char* horad, int times) {
    bench::Samples starts;
    bench::Samples ends;
    for (int i = 0; i < times; ++i) {
        store.resetStatus();
        const Clock::time_point begin = Clock::now();
        const pid_t process = start({horad, "-t", table});
        store.awaitStatus();
        starts.add(bench::nanoseconds(Clock::now() - begin));
        kill(process, SIGKILL);
        waitpid(process, nullptr, 0);

        store.resetStatus();
        waitpid(start({horad, "-d", "-t", table}), nullptr, 0);
        store.awaitStatus();
        pid_t daemon = 0;
        std::ifstream(pidFile) >> daemon;
        check(daemon > 0, "no pid file");
        ends.add(end(daemon));
    }
    starts.print("start to first status", "horad", "ms", 1e-6);
    ends.print("SIGTERM to gone", "horad", "ms", 1e-6);
}

void timeBareLoop(const char* program, int times) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string(loopSocket).copy(address.sun_path, sizeof address.sun_path - 1);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    check(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0, "bind");
    check(listen(listener, 1) == 0, "listen");

    bench::Samples starts;
    bench::Samples ends;
    for (int i = 0; i < times; ++i) {
        const Clock::time_point begin = Clock::now();
        const pid_t process = start({program, loopSocket});
        await(listener, "a connection");
        const int connection = accept(listener, nullptr, nullptr);
        await(connection, "the loop");
        starts.add(bench::nanoseconds(Clock::now() - begin));
        ends.add(end(process));
        waitpid(process, nullptr, 0);
        close(connection);
    }
    close(listener);
    starts.print("start to first status", "bare loop", "ms", 1e-6);
    ends.print("SIGTERM to gone", "bare loop", "ms", 1e-6);
}

} // namespace

int main(int argc, char* argv[]) {
    if (argc != 5) {
        std::fputs("Usage: bench_startstop STORE HORAD BARELOOP TIMES\n", stderr);
        return EXIT_FAILURE;
    }
    try {
        Store store(argv[1]);
        timeHorad(store, argv[2], std::atoi(argv[4]));
        timeBareLoop(argv[3], std::atoi(argv[4]));
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "bench_startstop: %s\n", exception.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
