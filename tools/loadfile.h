#pragma once

#include "tools/loadtext.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

// What a file for `load` holds, before anybody asks whether the store has such tables.
namespace tools {

// What is beyond is no load file. More rows don't fit into a table of the store.
inline constexpr std::size_t loadTableLimit = 1000;
inline constexpr std::size_t loadColumnLimit = 1000;
inline constexpr std::size_t loadRowLimit = std::size_t{16} * 1024 * 1024; // of a table
inline constexpr std::size_t loadRowSize = std::size_t{2} * 1024 * 1024;   // bytes of texts and names

using LoadCell = std::variant<std::int64_t, std::string>;

struct LoadRow {
    std::vector<std::pair<std::string, LoadCell>> cells; // by column, each once
};

// Takes a file's tables as they come.
class LoadVisitor {
public:
    virtual ~LoadVisitor() = default;

    // The rows that follow are of this table, which stands in the file once. `list`: a list of rows, else one
    // row that stands for itself.
    virtual void table(const std::string& name, bool list) = 0;
    // `place` says where it stands, for an error text.
    virtual void row(const LoadRow& row, const std::string& place) = 0;
};

// Gives the tables of a text in JSON to the visitor. The text may be anything: what is no load file throws
// Refused, with the place. Of the text no more than a row is kept.
void parseLoadFile(LoadText& text, LoadVisitor& visitor);

} // namespace tools
