#pragma once

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

namespace bench {

using Clock = std::chrono::steady_clock; // CLOCK_MONOTONIC, the same one in all processes

inline double nanoseconds(Clock::duration duration) {
    return static_cast<double>(std::chrono::duration_cast<std::chrono::nanoseconds>(duration).count());
}

// The times of one figure. They end as one JSON object in a line of the output.
class Samples {
public:
    void add(double sample) { samples_.push_back(sample); }
    std::size_t size() const { return samples_.size(); }

    void print(const std::string& figure, const std::string& who, const std::string& unit, double scale = 1) {
        std::sort(samples_.begin(), samples_.end());
        std::printf(R"({"figure": "%s", "who": "%s", "unit": "%s", "median": %.9g, "p99": %.9g, "n": %zu})"
                    "\n",
                    figure.c_str(), who.c_str(), unit.c_str(), at(0.5) * scale, at(0.99) * scale,
                    samples_.size());
        std::fflush(stdout);
    }

private:
    // The smallest sample that this part of all does not exceed.
    double at(double part) const {
        const double rank = std::ceil(part * static_cast<double>(samples_.size()));
        return samples_.empty() ? NAN : samples_[static_cast<std::size_t>(std::max(rank, 1.0)) - 1];
    }

    std::vector<double> samples_;
};

} // namespace bench
