#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

// What a file for `load` holds, before anybody asks whether the store has such tables.
namespace cfgctl {

inline constexpr std::size_t loadFileLimit = 16 * 1024 * 1024; // bytes

using LoadCell = std::variant<std::int64_t, std::string>;

struct LoadRow {
    std::vector<std::pair<std::string, LoadCell>> cells; // by column, each once
};

struct LoadTable {
    std::string name;
    bool list = false; // a list of rows, else one row that stands for itself
    std::vector<LoadRow> rows;
};

// The tables of a text in JSON, each once. The text may be anything: what is no load file throws Refused,
// with the place.
std::vector<LoadTable> parseLoadFile(const std::string& text);

// The whole file, or standard input for "-". Throws Refused for what can't be read or is over the limit.
std::string readLoadFile(const std::string& path);

} // namespace cfgctl
