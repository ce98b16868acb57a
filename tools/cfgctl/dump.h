#pragma once

#include "tools/storetables.h"

#include <cstddef>
#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace tools::cfgctl {

nlohmann::ordered_json rowAsJson(const velta::ValueList& row);
// The one row of a single-row table as an object, the rows of any other as a list of objects.
nlohmann::ordered_json rowsAsJson(bool singleRow, const Rows& rows);

// Writes tables as a document in JSON, row by row, so that no more than a part of it is in memory.
class DumpWriter {
public:
    using Print = std::function<void(const std::string& text)>;

    explicit DumpWriter(Print print) : print_(std::move(print)) {}

    void beginTable(const velta::protocol::TableInfo& table);
    // Throws Refused for a text that is no UTF-8: JSON can't hold it, and a dump that altered it would be no
    // copy.
    void row(const velta::ValueList& row);
    void endTable();
    // The end of the document; nothing is written afterwards.
    void end();

private:
    void object(const velta::ValueList& row, std::size_t level);
    void cell(const velta::ValueList& row, const std::string& column, const velta::Value& value);
    void startLine(std::size_t level);
    void printPart();

    Print print_;
    std::string text_ = "{"; // that was not printed yet
    velta::protocol::TableInfo table_;
    bool firstTable_ = true;
    bool firstRow_ = true;
};

} // namespace tools::cfgctl
