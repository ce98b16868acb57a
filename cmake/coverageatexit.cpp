// The counters are written by a child, however the process ends: a kill that reaches the process while it
// waits can't leave a file of counters half written, which nobody could add to any more. The linker puts
// __wrap_... in the place of the library's functions that end a program without its exit handlers.

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>

#include <fcntl.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

extern "C" {
void __gcov_dump();
[[noreturn]] void __real__exit(int status);
[[noreturn]] void __real_abort();
int __real_execv(const char* path, char* const* arguments);
}

namespace {

// What ends all processes of a test's house does not find it among them.
void leaveHouse() {
    const int outside = open("/proc/1/ns/mnt", O_RDONLY | O_CLOEXEC);
    if (outside >= 0)
        (void)setns(outside, CLONE_NEWNS); // only root can
}

// A file that is written under a test's limits, without memory say, can lose its first part.
void leaveLimits() {
    constexpr rlimit none = {RLIM_INFINITY, RLIM_INFINITY}; // only root can
    constexpr rlimit files = {1024, 1024};
    for (const auto resource : {RLIMIT_AS, RLIMIT_DATA, RLIMIT_FSIZE})
        (void)setrlimit(resource, &none);
    (void)setrlimit(RLIMIT_NOFILE, &files);
}

// A test may have the first calls, or the n-th one, interrupted. It must not be one of those that write a
// file, which would lose its head.
void takeInterrupts() {
    constexpr int more = 100; // than any test says
    for (int i = 0; i < more; ++i) {
        (void)!read(-1, nullptr, 0);
        (void)!write(-1, nullptr, 0);
    }
}

[[noreturn]] void writeCounters() {
    for (const int ending : {SIGTERM, SIGINT, SIGHUP, SIGQUIT, SIGPIPE, SIGALRM})
        (void)std::signal(ending, SIG_IGN);
    (void)close_range(STDERR_FILENO + 1, ~0U, 0); // locks and sockets
    leaveHouse();
    leaveLimits();
    (void)umask(0); // other users' processes add to the same files
    takeInterrupts();
    __gcov_dump();
    __real__exit(0);
}

void keepCounters() {
    const pid_t child = fork();
    if (child == 0)
        writeCounters();
    if (child > 0)
        (void)waitpid(child, nullptr, 0);
    else
        __gcov_dump();
}

// Instead of the exit handler that gcc brings, which is among those that would follow.
void onExit(int status, void*) {
    (void)std::fflush(nullptr);
    keepCounters();
    __real__exit(status);
}

[[gnu::constructor]] void registerOnExit() {
    (void)on_exit(onExit, nullptr); // the first to be registered is the last to run
}

} // namespace

extern "C" {

[[noreturn]] void __wrap__exit(int status) {
    keepCounters();
    __real__exit(status);
}

int __wrap_execv(const char* path, char* const* arguments) {
    keepCounters();
    return __real_execv(path, arguments);
}

[[noreturn]] void __wrap_abort() {
    keepCounters();
    __real_abort();
}
}
