#pragma once

#include <string>
#include <vector>

namespace fakes {

// While one lives, what the process writes to that descriptor is kept in memory instead.
class CapturedOutput {
public:
    // Throws std::system_error where the descriptor can't be redirected.
    explicit CapturedOutput(int descriptor);
    ~CapturedOutput();
    CapturedOutput(const CapturedOutput&) = delete;
    CapturedOutput& operator=(const CapturedOutput&) = delete;

    // All of it, from the beginning.
    std::string text() const;

private:
    int descriptor_;
    int original_; // where the output went before
    int memory_;
};

// The log, which is written to standard error.
class CapturedLog {
public:
    CapturedLog();

    // Without the time in front: "info horad: Initial reading of config". Lines before the last clear() are
    // left out.
    std::vector<std::string> lines() const;
    void clear() { begin_ = output_.text().size(); }

private:
    CapturedOutput output_;
    std::size_t begin_ = 0;
};

} // namespace fakes
