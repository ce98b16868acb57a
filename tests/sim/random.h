#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <string_view>

namespace sim {

// What a seed makes of chance: the same on every platform, which the standard library's distributions are
// not.
class Random {
public:
    // Each purpose has numbers of its own, so that a new one does not change what the others do.
    Random(std::uint64_t seed, std::string_view purpose) : engine_(mixed(seed, purpose)) {}

    // 0 to count - 1. The bias is that of 64 bits: none that counts.
    std::int64_t below(std::int64_t count) {
        return static_cast<std::int64_t>(engine_() % static_cast<std::uint64_t>(count));
    }
    std::int64_t between(std::int64_t least, std::int64_t most) { return least + below(most - least + 1); }
    int number(int least, int most) { return static_cast<int>(between(least, most)); }
    bool chance(int percent) { return below(100) < percent; }
    template <typename Container>
    const auto& among(const Container& choices) {
        return *(std::begin(choices) + below(static_cast<std::int64_t>(std::size(choices))));
    }

private:
    static std::uint64_t mixed(std::uint64_t seed, std::string_view purpose) {
        std::uint64_t result = seed * 0x9E3779B97F4A7C15U + 1;
        for (const char letter : purpose)
            result = (result ^ static_cast<unsigned char>(letter)) * 0x100000001B3U;
        return result;
    }

    std::mt19937_64 engine_;
};

} // namespace sim
