#include "fakes/scriptedclock.h"

#include <cerrno>
#include <cstdlib>
#include <optional>

#include <dlfcn.h>

namespace {

std::optional<std::time_t> scriptedNow;
fakes::TimeCalls calls;

std::time_t realTime() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec;
}

// Where long has 32 bits the functions that take 64-bit times have names of their own behind the usual ones.
constexpr bool sixtyFourBesideThirtyTwo = sizeof(std::time_t) > sizeof(long);
constexpr const char* nameOfLocaltime = sixtyFourBesideThirtyTwo ? "__localtime64" : "localtime";
constexpr const char* nameOfLocaltimeR = sixtyFourBesideThirtyTwo ? "__localtime64_r" : "localtime_r";
constexpr const char* nameOfMktime = sixtyFourBesideThirtyTwo ? "__mktime64" : "mktime";

// The function that ours stands in front of.
template <typename Function>
Function* realOne(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" {

std::time_t time(std::time_t* result) noexcept {
    ++calls.time;
    const std::time_t now = scriptedNow.value_or(realTime());
    if (now == static_cast<std::time_t>(-1))
        errno = EOVERFLOW;
    else if (result != nullptr)
        *result = now;
    return now;
}

std::tm* localtime(const std::time_t* seconds) noexcept {
    ++calls.localtime;
    static auto* const real = realOne<std::tm*(const std::time_t*)>(nameOfLocaltime);
    return real(seconds);
}

std::tm* localtime_r(const std::time_t* seconds, std::tm* result) noexcept {
    ++calls.localtime;
    static auto* const real = realOne<std::tm*(const std::time_t*, std::tm*)>(nameOfLocaltimeR);
    return real(seconds, result);
}

std::size_t strftime(char* text, std::size_t size, const char* format, const std::tm* moment) noexcept {
    ++calls.strftime;
    static auto* const real =
        realOne<std::size_t(char*, std::size_t, const char*, const std::tm*)>("strftime");
    return real(text, size, format, moment);
}

std::time_t mktime(std::tm* moment) noexcept {
    ++calls.mktime;
    static auto* const real = realOne<std::time_t(std::tm*)>(nameOfMktime);
    return real(moment);
}

} // extern "C"

namespace fakes {

ScriptedClock::~ScriptedClock() {
    scriptedNow.reset();
}

void ScriptedClock::set(std::time_t now) {
    scriptedNow = now;
}

void ScriptedClock::fail() {
    scriptedNow = static_cast<std::time_t>(-1);
}

TimeCalls timeCalls() {
    return calls;
}

void resetTimeCalls() {
    calls = TimeCalls{};
}

LocalZone::~LocalZone() {
    unsetenv("TZ");
    tzset();
}

void LocalZone::set(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
}

} // namespace fakes
