#pragma once

#include "tools/loadfile.h"

#include <algorithm>
#include <string>
#include <vector>

// The whole content of a file for `load`, in memory: only for tests.
namespace fakes {

struct LoadedTable {
    std::string name;
    bool list = false;
    std::vector<tools::LoadRow> rows;
};

class LoadedTables : public tools::LoadVisitor {
public:
    void table(const std::string& name, bool list) override { tables.push_back(LoadedTable{name, list, {}}); }
    void row(const tools::LoadRow& row, const std::string& place) override {
        tables.back().rows.push_back(row);
        places.push_back(place);
    }

    std::vector<LoadedTable> tables;
    std::vector<std::string> places;
};

// A text arrives in pieces of so many bytes.
inline tools::LoadText::Read readFrom(const std::string& text, std::size_t piece = 64 * 1024) {
    return [&text, piece, begin = std::size_t{0}](char* bytes, std::size_t size) mutable {
        const std::size_t count = std::min({size, piece, text.size() - begin});
        std::copy_n(text.data() + begin, count, bytes);
        begin += count;
        return count;
    };
}

inline LoadedTables parsed(const std::string& text, std::size_t piece = 64 * 1024) {
    LoadedTables tables;
    tools::LoadText input(readFrom(text, piece));
    tools::parseLoadFile(input, tables);
    return tables;
}

} // namespace fakes
