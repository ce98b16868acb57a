#include "tools/loadfile.h"

#include "tools/errors.h"
#include "tools/text.h"

#include <algorithm>
#include <istream>
#include <limits>
#include <nlohmann/json.hpp>

namespace tools {

namespace {

constexpr std::size_t reasonLimit = 300; // bytes of what the parser says, which may repeat much of the file

// Takes the events of the JSON parser and makes rows of them: a level too deep or a value of the wrong kind
// ends it at once.
class LoadParser : public nlohmann::json::json_sax_t {
public:
    LoadParser(LoadText& text, LoadVisitor& visitor) : text_(text), visitor_(visitor) {}

    bool null() override { return unexpected("null"); }
    bool boolean(bool) override { return unexpected("true or false"); }
    bool number_float(double, const std::string& text) override {
        return unexpected("the number " + inQuotes(text));
    }
    bool binary(nlohmann::json::binary_t&) override { return unexpected("binary data"); }
    bool number_integer(std::int64_t number) override { return cell(number, 0, "the number"); }
    bool number_unsigned(std::uint64_t number) override;
    bool string(std::string& text) override { return cell(text, text.size(), "the text"); }

    bool start_object(std::size_t) override;
    bool end_object() override;
    bool start_array(std::size_t) override;
    bool end_array() override;
    bool key(std::string& name) override;

    bool parse_error(std::size_t, const std::string&, const nlohmann::json::exception& error) override;

private:
    enum class Place { Document, Tables, List, Row };

    bool cell(LoadCell value, std::size_t size, const char* what);
    void beginTable(const std::string& name);
    void beginRow();
    void endRow();
    void beginCell(const std::string& column);
    void grow(std::size_t bytes);
    // Throws.
    bool unexpected(const std::string& what) const;
    std::string where() const;

    LoadText& text_;
    LoadVisitor& visitor_;
    Place place_ = Place::Document;
    std::vector<std::string> tables_; // that have begun
    bool list_ = false;               // of the last one
    std::size_t rows_ = 0;            // of it, that have begun
    LoadRow row_;                     // that has begun
    std::size_t rowSize_ = 0;         // bytes
    std::string column_;              // whose value comes next in it
};

bool LoadParser::number_unsigned(std::uint64_t number) {
    if (number > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
        return unexpected("the number " + std::to_string(number));
    return cell(static_cast<std::int64_t>(number), 0, "the number");
}

bool LoadParser::cell(LoadCell value, std::size_t size, const char* what) {
    if (place_ != Place::Row)
        return unexpected(what);
    grow(size);
    row_.cells.emplace_back(column_, std::move(value));
    return true;
}

// What is over the limit is over the one of a message to the store too.
void LoadParser::grow(std::size_t bytes) {
    text_.valueTaken();
    rowSize_ += bytes;
    if (rowSize_ > loadRowSize)
        throw Refused(where() + ": larger than " + std::to_string(loadRowSize) + " bytes");
}

bool LoadParser::start_object(std::size_t) {
    switch (place_) {
    case Place::Document:
        place_ = Place::Tables;
        return true;
    case Place::Tables:
        visitor_.table(tables_.back(), false);
        beginRow();
        return true;
    case Place::List:
        beginRow();
        return true;
    case Place::Row:
        break;
    }
    return unexpected("an object");
}

bool LoadParser::end_object() {
    if (place_ == Place::Row)
        endRow();
    return true;
}

bool LoadParser::start_array(std::size_t) {
    if (place_ != Place::Tables)
        return unexpected("a list");
    list_ = true;
    place_ = Place::List;
    visitor_.table(tables_.back(), true);
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
    text_.valueTaken();
    if (std::find(tables_.begin(), tables_.end(), name) != tables_.end())
        throw Refused("table " + inQuotes(name) + " stands there twice");
    if (tables_.size() == loadTableLimit)
        throw Refused("more than " + std::to_string(loadTableLimit) + " tables");
    tables_.push_back(name);
    list_ = false;
    rows_ = 0;
}

void LoadParser::beginRow() {
    text_.valueTaken();
    if (++rows_ > loadRowLimit)
        throw Refused("table " + inQuotes(tables_.back()) + ": more than " + std::to_string(loadRowLimit) +
                      " rows");
    row_.cells.clear();
    rowSize_ = 0;
    place_ = Place::Row;
}

void LoadParser::endRow() {
    visitor_.row(row_, "table " + tables_.back() + (list_ ? ", row " + std::to_string(rows_) : ""));
    place_ = list_ ? Place::List : Place::Tables;
}

void LoadParser::beginCell(const std::string& column) {
    const auto& cells = row_.cells;
    if (std::any_of(cells.begin(), cells.end(), [&](const auto& cell) { return cell.first == column; }))
        throw Refused(where() + ": column " + inQuotes(column) + " stands there twice");
    if (cells.size() == loadColumnLimit)
        throw Refused(where() + ": more than " + std::to_string(loadColumnLimit) + " columns");
    grow(column.size());
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
    const std::size_t row = place_ == Place::List ? rows_ + 1 : rows_; // the one that should begin here
    return "table " + inQuotes(tables_.back()) + (list_ ? ", row " + std::to_string(row) : "");
}

bool LoadParser::parse_error(std::size_t, const std::string&, const nlohmann::json::exception& error) {
    std::string text = error.what();
    const std::size_t tagEnd = text.find("] "); // the library's number for it stands in front
    text.erase(0, tagEnd == std::string::npos ? 0 : tagEnd + 2);
    throw Refused(text.size() > reasonLimit ? text.substr(0, reasonLimit) + "..." : text);
}

} // namespace

void parseLoadFile(LoadText& text, LoadVisitor& visitor) {
    LoadParser parser(text, visitor);
    std::istream stream(&text);
    (void)nlohmann::json::sax_parse(stream, &parser); // the parser throws what it can't take
}

} // namespace tools
