// Changes one cell durably. The contestants take turns in short rounds, so that other work of the disk hits
// all of them alike. The first half of the commits has a new file to grow; later SQLite writes its log over
// and over.

#include "bench/contestants.h"
#include "bench/samples.h"

#include <cstdlib>
#include <exception>

namespace {

using bench::Clock;

struct Entry {
    std::string who;
    std::unique_ptr<bench::Contestant> contestant;
    bench::Samples first;
    bench::Samples later;
};

void commitOften(Entry& entry, int commits, bench::Samples& samples) {
    for (int i = 0; i < commits; ++i) {
        const Clock::time_point begin = Clock::now();
        entry.contestant->commit(i % 2 == 0);
        samples.add(bench::nanoseconds(Clock::now() - begin));
    }
}

} // namespace

int main(int argc, char* argv[]) {
    if (argc < 4) {
        std::fputs("Usage: bench_commit ROUNDS COMMITS WHO=WHERE...\n", stderr);
        return EXIT_FAILURE;
    }
    try {
        std::vector<Entry> entries;
        for (int i = 3; i < argc; ++i) {
            const std::string word = argv[i];
            const std::string who = word.substr(0, word.find('='));
            entries.push_back({who, bench::makeContestant(who, word.substr(who.size() + 1)), {}, {}});
        }
        const int rounds = std::atoi(argv[1]);
        const int commits = std::atoi(argv[2]);
        for (int round = 0; round < rounds; ++round)
            for (Entry& entry : entries)
                commitOften(entry, commits, round < rounds / 2 ? entry.first : entry.later);
        const std::string half = std::to_string(rounds / 2 * commits);
        for (Entry& entry : entries)
            entry.first.print("durable commit, the first " + half, entry.who, "us", 1e-3);
        for (Entry& entry : entries)
            entry.later.print("durable commit, after " + half, entry.who, "us", 1e-3);
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "bench_commit: %s\n", exception.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
