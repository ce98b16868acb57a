#pragma once

#include "bench/samples.h"

#include <functional>

namespace bench {

// Times single calls, in microseconds. The first one is not counted.
inline void timeCalls(const std::string& figure, const char* who, const std::function<void()>& call) {
    constexpr std::size_t fewestSamples = 101;
    constexpr std::chrono::milliseconds shortestTime(300);
    constexpr double microsecondsANanosecond = 1e-3;
    Samples samples;
    call();
    const Clock::time_point end = Clock::now() + shortestTime;
    while (samples.size() < fewestSamples || Clock::now() < end) {
        const Clock::time_point begin = Clock::now();
        call();
        samples.add(nanoseconds(Clock::now() - begin));
    }
    samples.print(figure, who, "us", microsecondsANanosecond);
}

} // namespace bench
