// Preloaded into a server: each sync of a file takes as long as on a router's flash. The file is synchronised
// as always, then the call waits for the rest of its time.

#include <cstdlib>
#include <ctime>

#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr long nanosecondsASecond = 1'000'000'000;

timespec endOfSync() {
    const char* const microseconds = std::getenv("SLOWSYNC");
    timespec end{};
    clock_gettime(CLOCK_MONOTONIC, &end);
    end.tv_nsec += 1000 * (microseconds != nullptr ? std::atol(microseconds) : 0);
    end.tv_sec += end.tv_nsec / nanosecondsASecond;
    end.tv_nsec %= nanosecondsASecond;
    return end;
}

int slowly(long call, int file) {
    const timespec end = endOfSync();
    const long result = syscall(call, file);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr) != 0) {
    }
    return static_cast<int>(result);
}

} // namespace

extern "C" int fsync(int file) {
    return slowly(SYS_fsync, file);
}

extern "C" int fdatasync(int file) {
    return slowly(SYS_fdatasync, file);
}
