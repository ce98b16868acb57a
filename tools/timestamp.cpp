#include "tools/timestamp.h"

#include <array>

namespace tools {

namespace {

constexpr std::size_t minutesOfOffset = 2; // digits; a colon goes in front of them

} // namespace

std::string timestamp(std::time_t time) {
    std::tm local{};
    if (localtime_r(&time, &local) == nullptr)
        return std::to_string(time);
    std::array<char, 64> bytes;
    std::string text(bytes.data(), std::strftime(bytes.data(), bytes.size(), "%Y-%m-%dT%H:%M:%S%z", &local));
    return text.insert(text.size() - minutesOfOffset, ":");
}

} // namespace tools
