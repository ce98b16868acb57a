#include "store/cluster/devicename.h"

#include <array>
#include <random>

#include <unistd.h>

namespace store {

namespace {

constexpr std::size_t mostOfHost = 32;

bool isPlain(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-';
}

std::string hostName() {
    std::array<char, 256> name{};
    if (gethostname(name.data(), name.size() - 1) != 0)
        return "device";
    std::string plain;
    for (const char* at = name.data(); *at != '\0' && plain.size() < mostOfHost; ++at)
        if (isPlain(*at))
            plain += *at;
    return plain.empty() ? "device" : plain;
}

} // namespace

std::string newDeviceName() {
    constexpr const char* digits = "0123456789abcdef";
    constexpr int length = 12;
    std::random_device random;
    std::string name = hostName() + '-';
    for (int i = 0; i < length; ++i)
        name += digits[random() % 16];
    return name;
}

} // namespace store
