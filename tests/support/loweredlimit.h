#pragma once

#include <csignal>
#include <cstdlib>

#include <sys/resource.h>

// A limit of this process, lower as long as this lives: RLIMIT_NOFILE of 0 leaves no descriptor to be had.
class LoweredLimit {
public:
    LoweredLimit(__rlimit_resource resource, rlim_t limit) : resource_(resource) {
        if (getrlimit(resource_, &before_) != 0)
            std::abort();
        const rlimit lowered{limit, before_.rlim_max};
        set(lowered);
    }
    ~LoweredLimit() { set(before_); }
    LoweredLimit(const LoweredLimit&) = delete;
    LoweredLimit& operator=(const LoweredLimit&) = delete;

private:
    void set(const rlimit& limit) const {
        if (setrlimit(resource_, &limit) != 0)
            std::abort();
    }

    __rlimit_resource resource_;
    rlimit before_{};
};

// No file grows over so many bytes as long as this lives; who tries gets an error and no signal.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes)
        : handler_(std::signal(SIGXFSZ, SIG_IGN)), limit_(RLIMIT_FSIZE, bytes) {}
    ~FileSizeLimit() { (void)std::signal(SIGXFSZ, handler_); }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    void (*handler_)(int);
    LoweredLimit limit_;
};
