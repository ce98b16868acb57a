// What a program costs from its start to its end: seconds, seconds of a CPU, and the most memory.
//
// bench_process WHO TIMES PROGRAM WORD...   what the program prints is thrown away
//
// A small program starts it: a process begins with the peak of the one that it is a copy of.

#include "bench/samples.h"

#include <cstdlib>
#include <stdexcept>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using bench::Clock;

double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

[[noreturn]] void become(char* words[]) {
    const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
    dup2(nowhere, STDIN_FILENO);
    dup2(nowhere, STDOUT_FILENO);
    execvp(words[0], words);
    _exit(127);
}

class Costs {
public:
    void add(char* words[]) {
        const Clock::time_point begin = Clock::now();
        const pid_t process = fork();
        if (process == 0)
            become(words);
        int status = 0;
        rusage usage{};
        if (process < 0 || wait4(process, &status, 0, &usage) != process)
            throw std::runtime_error("it can't be started");
        if (status != 0)
            throw std::runtime_error("it did not end with 0");
        times_.add(bench::nanoseconds(Clock::now() - begin));
        cpu_.add(seconds(usage.ru_utime) + seconds(usage.ru_stime));
        peaks_.add(static_cast<double>(usage.ru_maxrss));
    }

    void print(const char* who) {
        times_.print("time", who, "s", 1e-9);
        cpu_.print("CPU", who, "s");
        peaks_.print("peak", who, "kB");
    }

private:
    bench::Samples times_;
    bench::Samples cpu_;
    bench::Samples peaks_;
};

} // namespace

int main(int argc, char* argv[]) {
    if (argc < 4) {
        std::fputs("Usage: bench_process WHO TIMES PROGRAM WORD...\n", stderr);
        return EXIT_FAILURE;
    }
    try {
        Costs costs;
        for (int left = std::atoi(argv[2]); left > 0; --left)
            costs.add(argv + 3);
        costs.print(argv[1]);
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "bench_process: %s: %s\n", argv[1], exception.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
