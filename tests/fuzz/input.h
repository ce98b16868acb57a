#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace fuzz {

// Takes a fuzzer's input apart, from its front. Behind its end there are zeros and empty texts.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : data_(data), left_(size) {}

    bool atEnd() const { return left_ == 0; }

    std::uint8_t byte() { return static_cast<std::uint8_t>(number(1)); }

    // In network byte order, so that an input means the same on every machine.
    std::uint64_t number(std::size_t bytes) {
        std::uint64_t result = 0;
        for (std::size_t i = 0; i < bytes; ++i)
            result = result << 8 | take();
        return result;
    }

    std::string text(std::size_t most) {
        const std::size_t size = std::min(most, left_);
        std::string result(reinterpret_cast<const char*>(data_), size);
        data_ += size;
        left_ -= size;
        return result;
    }

    std::string rest() { return text(left_); }

private:
    std::uint8_t take() {
        if (left_ == 0)
            return 0;
        --left_;
        return *data_++;
    }

    const std::uint8_t* data_;
    std::size_t left_;
};

// A condition that does not hold is a defect: the fuzzer keeps the input, and a replay fails.
inline void require(bool holds, const char* what) {
    if (holds)
        return;
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
}

} // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
