// The floor of a daemon that waits: the same libraries, one connection, and a wait of two seconds over and
// over.

#include <csignal>
#include <cstdlib>
#include <iostream>

#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr int eventWait = 2000; // milliseconds, as long as horad's

volatile std::sig_atomic_t running = 1;

extern "C" void onStopSignal(int) {
    running = 0;
}

int connectTo(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int connection = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        return -1;
    return connection;
}

} // namespace

int main(int argc, char* argv[]) {
    struct sigaction action = {};
    action.sa_handler = onStopSignal;
    (void)sigaction(SIGTERM, &action, nullptr);

    const int connection = argc == 2 ? connectTo(argv[1]) : -1;
    if (connection < 0) {
        std::cerr << "Usage: bench_bareloop SOCKET, where somebody listens" << std::endl;
        return EXIT_FAILURE;
    }
    const int events = epoll_create1(EPOLL_CLOEXEC);
    epoll_event interest{};
    interest.events = EPOLLIN;
    (void)epoll_ctl(events, EPOLL_CTL_ADD, connection, &interest);

    (void)!write(connection, "", 1); // tells that the loop begins
    while (running != 0) {
        epoll_event event{};
        (void)epoll_wait(events, &event, 1, eventWait);
    }
    return EXIT_SUCCESS;
}
