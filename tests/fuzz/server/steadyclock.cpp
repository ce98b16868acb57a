#include "fuzz/server/steadyclock.h"

#include <ctime>

#include <sys/syscall.h>
#include <unistd.h>

namespace {

std::chrono::milliseconds steadyNow = std::chrono::hours(1);

} // namespace

// In front of the C library's: the steady clock of the whole program reads it.
extern "C" int clock_gettime(clockid_t clock, timespec* result) noexcept {
    if (clock != CLOCK_MONOTONIC)
        return static_cast<int>(syscall(SYS_clock_gettime, clock, result));
    result->tv_sec = static_cast<std::time_t>(steadyNow.count() / 1000);
    result->tv_nsec = static_cast<long>(steadyNow.count() % 1000 * 1000000);
    return 0;
}

namespace fuzz {

void passTime(std::chrono::milliseconds time) {
    steadyNow += time;
}

} // namespace fuzz
