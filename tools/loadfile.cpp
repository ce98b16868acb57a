#include "tools/loadfile.h"

#include "tools/errors.h"
#include "tools/text.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <limits>
#include <nlohmann/json.hpp>

namespace cfgctl {

namespace {

// More than any table has: what is beyond is no load file, and its memory is saved.
constexpr std::size_t tableLimit = 1000;
constexpr std::size_t rowLimit = 100000; // of all tables together
constexpr std::size_t columnLimit = 1000;
constexpr std::size_t reasonLimit = 300; // bytes of what the parser says, which may repeat much of the file

// Takes the events of the JSON parser and makes tables of them, so that nothing is kept of a file that is
// none: a level too deep or a value of the wrong kind ends it at once.
class LoadParser : public nlohmann::json::json_sax_t {
public:
    std::vector<LoadTable> takeTables() { return std::move(tables_); }

    bool null() override { return unexpected("null"); }
    bool boolean(bool) override { return unexpected("true or false"); }
    bool number_float(double, const std::string& text) override {
        return unexpected("the number " + inQuotes(text));
    }
    bool binary(nlohmann::json::binary_t&) override { return unexpected("binary data"); }
    bool number_integer(std::int64_t number) override { return cell(number, "the number"); }
    bool number_unsigned(std::uint64_t number) override;
    bool string(std::string& text) override { return cell(std::move(text), "the text"); }

    bool start_object(std::size_t) override;
    bool end_object() override;
    bool start_array(std::size_t) override;
    bool end_array() override;
    bool key(std::string& name) override;

    bool parse_error(std::size_t, const std::string&, const nlohmann::json::exception& error) override;

private:
    enum class Place { Document, Tables, List, Row };

    bool cell(LoadCell value, const char* what);
    void beginTable(const std::string& name);
    void beginRow();
    void beginCell(const std::string& column);
    // Throws.
    bool unexpected(const std::string& what) const;
    std::string where() const;

    std::vector<LoadTable> tables_;
    Place place_ = Place::Document;
    std::size_t rows_ = 0;
    std::string column_; // whose value comes next in a row
};

bool LoadParser::number_unsigned(std::uint64_t number) {
    if (number > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
        return unexpected("the number " + std::to_string(number));
    return cell(static_cast<std::int64_t>(number), "the number");
}

bool LoadParser::cell(LoadCell value, const char* what) {
    if (place_ != Place::Row)
        return unexpected(what);
    tables_.back().rows.back().cells.emplace_back(column_, std::move(value));
    return true;
}

bool LoadParser::start_object(std::size_t) {
    switch (place_) {
    case Place::Document:
        place_ = Place::Tables;
        return true;
    case Place::Tables:
    case Place::List:
        beginRow();
        place_ = Place::Row;
        return true;
    case Place::Row:
        break;
    }
    return unexpected("an object");
}

bool LoadParser::end_object() {
    if (place_ == Place::Row)
        place_ = tables_.back().list ? Place::List : Place::Tables;
    return true;
}

bool LoadParser::start_array(std::size_t) {
    if (place_ != Place::Tables)
        return unexpected("a list");
    tables_.back().list = true;
    place_ = Place::List;
    return true;
}

bool LoadParser::end_array() {
    place_ = Place::Tables;
    return true;
}

bool LoadParser::key(std::string& name) {
    if (place_ == Place::Tables)
        beginTable(name);
    else
        beginCell(name);
    return true;
}

void LoadParser::beginTable(const std::string& name) {
    if (std::any_of(tables_.begin(), tables_.end(),
                    [&](const LoadTable& table) { return table.name == name; }))
        throw Refused("table " + inQuotes(name) + " stands there twice");
    if (tables_.size() == tableLimit)
        throw Refused("more than " + std::to_string(tableLimit) + " tables");
    tables_.push_back(LoadTable{name, false, {}});
}

void LoadParser::beginRow() {
    if (++rows_ > rowLimit)
        throw Refused("more than " + std::to_string(rowLimit) + " rows");
    tables_.back().rows.emplace_back();
}

void LoadParser::beginCell(const std::string& column) {
    const auto& cells = tables_.back().rows.back().cells;
    if (std::any_of(cells.begin(), cells.end(), [&](const auto& cell) { return cell.first == column; }))
        throw Refused(where() + ": column " + inQuotes(column) + " stands there twice");
    if (cells.size() == columnLimit)
        throw Refused(where() + ": more than " + std::to_string(columnLimit) + " columns");
    column_ = column;
}

bool LoadParser::unexpected(const std::string& what) const {
    switch (place_) {
    case Place::Document:
        throw Refused("an object with the tables is expected, not " + what);
    case Place::Tables:
        throw Refused(where() + ": a row or a list of rows is expected, not " + what);
    case Place::List:
        throw Refused(where() + ": an object with the columns is expected, not " + what);
    case Place::Row:
        throw Refused(where() + ", column " + inQuotes(column_) +
                      ": a whole number or a text is expected, not " + what);
    }
    return false;
}

// Rows count from 1.
std::string LoadParser::where() const {
    const LoadTable& table = tables_.back();
    std::size_t row = table.rows.size();
    if (place_ == Place::List)
        ++row; // the one that should begin here
    return "table " + inQuotes(table.name) + (table.list ? ", row " + std::to_string(row) : "");
}

bool LoadParser::parse_error(std::size_t, const std::string&, const nlohmann::json::exception& error) {
    std::string text = error.what();
    const std::size_t tagEnd = text.find("] "); // the library's number for it stands in front
    text.erase(0, tagEnd == std::string::npos ? 0 : tagEnd + 2);
    throw Refused(text.size() > reasonLimit ? text.substr(0, reasonLimit) + "..." : text);
}

std::string readAll(std::istream& in) {
    std::string text;
    std::array<char, 64 * 1024> bytes;
    errno = 0;
    while (in.read(bytes.data(), bytes.size()) || in.gcount() > 0) {
        text.append(bytes.data(), static_cast<std::size_t>(in.gcount()));
        if (text.size() > loadFileLimit)
            throw Refused("larger than " + std::to_string(loadFileLimit) + " bytes");
    }
    if (in.bad())
        throw Refused(std::strerror(errno != 0 ? errno : EIO));
    return text;
}

} // namespace

std::vector<LoadTable> parseLoadFile(const std::string& text) {
    LoadParser parser;
    (void)nlohmann::json::sax_parse(text, &parser); // the parser throws what it can't take
    return parser.takeTables();
}

std::string readLoadFile(const std::string& path) {
    if (path == "-")
        return readAll(std::cin);
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw Refused(std::strerror(errno));
    return readAll(file);
}

} // namespace cfgctl
