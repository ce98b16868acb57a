#include "support/scriptedclock.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <optional>

#include <dlfcn.h>

namespace {

using std::chrono::microseconds;
using std::chrono::seconds;

enum class Source { Real, Scripted, None };

Source source = Source::Real;
std::time_t scriptedSeconds; // any, however far away
microseconds scriptedFraction;
microseconds scriptedStep;
fakes::TimeCalls calls;

// Where long has 32 bits the functions that take 64-bit times have names of their own behind the usual ones.
constexpr bool sixtyFourBesideThirtyTwo = sizeof(std::time_t) > sizeof(long);
constexpr const char* nameOfClockGettime = sixtyFourBesideThirtyTwo ? "__clock_gettime64" : "clock_gettime";
constexpr const char* nameOfLocaltime = sixtyFourBesideThirtyTwo ? "__localtime64" : "localtime";
constexpr const char* nameOfLocaltimeR = sixtyFourBesideThirtyTwo ? "__localtime64_r" : "localtime_r";
constexpr const char* nameOfMktime = sixtyFourBesideThirtyTwo ? "__mktime64" : "mktime";

// The C library's function, which ours replaces.
template <typename Function>
Function* realOne(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

int realClockGettime(clockid_t clock, timespec* result) {
    static auto* const real = realOne<int(clockid_t, timespec*)>(nameOfClockGettime);
    return real(clock, result);
}

void moveOn(microseconds step) {
    const microseconds fraction = scriptedFraction + step;
    const seconds whole = std::chrono::floor<seconds>(fraction);
    scriptedSeconds += static_cast<std::time_t>(whole.count());
    scriptedFraction = fraction - whole;
}

// None if the clock is to fail.
std::optional<timespec> now() {
    timespec result{};
    if (source == Source::Real)
        (void)realClockGettime(CLOCK_REALTIME, &result);
    if (source == Source::None)
        return std::nullopt;
    if (source == Source::Scripted) {
        result.tv_sec = scriptedSeconds;
        result.tv_nsec = static_cast<long>(scriptedFraction.count() * 1000);
        moveOn(scriptedStep);
    }
    return result;
}

} // namespace

extern "C" {

std::time_t time(std::time_t* result) noexcept {
    ++calls.time;
    const std::optional<timespec> moment = now();
    const std::time_t answer = moment ? moment->tv_sec : static_cast<std::time_t>(-1);
    if (!moment)
        errno = EOVERFLOW;
    else if (result != nullptr)
        *result = answer;
    return answer;
}

int clock_gettime(clockid_t clock, timespec* result) noexcept {
    if (clock != CLOCK_REALTIME)
        return realClockGettime(clock, result);
    ++calls.clockGettime;
    const std::optional<timespec> moment = now();
    if (moment)
        *result = *moment;
    else
        errno = EINVAL;
    return moment ? 0 : -1;
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
    source = Source::Real;
    scriptedStep = microseconds(0);
}

void ScriptedClock::set(std::time_t now) {
    source = Source::Scripted;
    scriptedSeconds = now;
    scriptedFraction = microseconds(0);
}

void ScriptedClock::set(microseconds sinceEpoch) {
    set(std::time_t{0});
    moveOn(sinceEpoch);
}

void ScriptedClock::tick(microseconds step) {
    scriptedStep = step;
}

void ScriptedClock::fail() {
    source = Source::None;
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
