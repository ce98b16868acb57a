#include "sim/options.h"
#include "sim/scenario.h"
#include "sim/simulation.h"
#include "sim/zones.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

namespace {

using sim::Outcome;
using Run = std::function<Outcome()>;

struct Sum {
    std::uint64_t passes = 0;
    std::uint64_t violations = 0;
};

std::vector<Run> householdRuns(const sim::Options& options) {
    const std::uint64_t first = options.seed.value_or(1);
    const std::uint64_t count = options.seed ? 1 : static_cast<std::uint64_t>(options.seeds);
    std::vector<Run> runs;
    for (std::uint64_t seed = first; seed - first < count; ++seed) {
        std::vector<std::string> zones = options.zones;
        if (zones.empty())
            zones.emplace_back(sim::zones()[seed % sim::zones().size()].name);
        for (const std::string& zone : zones)
            runs.emplace_back([seed, zone, days = options.days] { return sim::simulate(seed, zone, days); });
    }
    return runs;
}

std::vector<Run> scenarioRuns(const std::string& name) {
    std::vector<Run> runs;
    for (const sim::Scenario& scenario : sim::scenarios())
        if (name == "all" || name == scenario.name)
            runs.emplace_back([scenario] { return sim::play(scenario); });
    return runs;
}

Sum runEach(const std::vector<Run>& runs, std::size_t first, std::size_t step) {
    Sum sum;
    for (std::size_t index = first; index < runs.size(); index += step) {
        const Outcome outcome = runs[index]();
        sum.passes += outcome.passes;
        if (!outcome.failure)
            continue;
        ++sum.violations;
        std::printf("%s\n", outcome.failure->c_str());
        std::fflush(stdout);
    }
    return sum;
}

// The time zone belongs to the process: each job is one of its own. It sends its sum through a pipe; one that
// ends without it counts as a violation.
Sum runInJobs(const std::vector<Run>& runs, int jobs) {
    std::vector<int> sums;
    for (int job = 0; job < jobs; ++job) {
        int ends[2];
        if (pipe(ends) != 0)
            std::abort();
        const pid_t child = fork();
        if (child < 0)
            std::abort();
        if (child == 0) {
            const Sum sum = runEach(runs, static_cast<std::size_t>(job), static_cast<std::size_t>(jobs));
            _exit(write(ends[1], &sum, sizeof sum) == sizeof sum ? EXIT_SUCCESS : EXIT_FAILURE);
        }
        close(ends[1]);
        sums.push_back(ends[0]);
    }
    Sum all;
    for (const int end : sums) {
        Sum sum;
        const bool told = read(end, &sum, sizeof sum) == sizeof sum;
        close(end);
        all.passes += told ? sum.passes : 0;
        all.violations += told ? sum.violations : 1;
    }
    while (wait(nullptr) > 0)
        continue;
    return all;
}

void tellOfScenarios() {
    std::fprintf(stderr, "sim: there is no such scenario. There are:\n");
    for (const sim::Scenario& scenario : sim::scenarios())
        std::fprintf(stderr, "  %s\n", scenario.name);
}

} // namespace

int main(int argc, char* argv[]) {
    const std::optional<sim::Options> options = sim::parseOptions(argc, argv);
    if (!options)
        return EXIT_FAILURE;
    if (options->help)
        return EXIT_SUCCESS;
    const std::vector<Run> runs =
        options->scenario.empty() ? householdRuns(*options) : scenarioRuns(options->scenario);
    if (runs.empty()) {
        tellOfScenarios();
        return EXIT_FAILURE;
    }
    const auto begin = std::chrono::steady_clock::now();
    const Sum sum = options->jobs == 1 ? runEach(runs, 0, 1) : runInJobs(runs, options->jobs);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    std::printf("%zu runs, %llu passes in %.1f s, %.0f a second, %llu violations\n", runs.size(),
                static_cast<unsigned long long>(sum.passes), took.count(),
                static_cast<double>(sum.passes) / took.count(),
                static_cast<unsigned long long>(sum.violations));
    return sum.violations == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
