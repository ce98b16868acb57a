#include "store/storage/cells.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace store {

using velta::Value;

namespace {

struct Range {
    std::int64_t least;
    std::int64_t most;
};

Range rangeOf(Value::TypeCode type) {
    if (type == Value::Switch)
        return {0, 1};
    if (type == Value::Counter)
        return {0, std::numeric_limits<std::uint32_t>::max()};
    return {std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()};
}

// How many bytes the character takes that this byte begins; 0 for none.
std::size_t characterSize(unsigned char first) {
    if (first < 0x80)
        return 1;
    if (first >= 0xc2 && first < 0xe0)
        return 2;
    if (first >= 0xe0 && first < 0xf0)
        return 3;
    return first >= 0xf0 && first < 0xf5 ? 4 : 0;
}

// Forms that are longer than need be, halves of surrogate pairs, and what lies above U+10FFFF.
bool isForbidden(unsigned char first, unsigned char second) {
    return (first == 0xe0 && second < 0xa0) || (first == 0xed && second >= 0xa0) ||
           (first == 0xf0 && second < 0x90) || (first == 0xf4 && second >= 0x90);
}

bool isUtf8WithoutZero(std::string_view text) {
    for (std::size_t i = 0; i < text.size();) {
        const auto first = static_cast<unsigned char>(text[i]);
        const std::size_t size = characterSize(first);
        if (first == 0 || size == 0 || size > text.size() - i)
            return false;
        for (std::size_t k = 1; k < size; ++k)
            if ((static_cast<unsigned char>(text[i + k]) & 0xc0) != 0x80)
                return false;
        if (size > 1 && isForbidden(first, static_cast<unsigned char>(text[i + 1])))
            return false;
        i += size;
    }
    return true;
}

// A counter's bits travel in a signed integer, here they are the unsigned number again.
std::int64_t numberIn(const Value& value) {
    const std::int32_t number = value.getInteger();
    return value.type() == Value::Counter ? std::int64_t{static_cast<std::uint32_t>(number)} : number;
}

} // namespace

std::optional<std::int64_t> wholeNumber(std::string_view text) {
    std::int64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end)
        return std::nullopt;
    return number;
}

bool fits(Value::TypeCode type, std::int64_t number) {
    const Range range = rangeOf(type);
    return number >= range.least && number <= range.most;
}

bool acceptable(Value::TypeCode type, const Value& value) {
    if (value.type() != type)
        return false;
    if (type != Value::Text)
        return fits(type, numberIn(value));
    const std::string text = value.getText();
    return text.size() <= textLimit && isUtf8WithoutZero(text);
}

const char* describe(Value::TypeCode type) {
    switch (type) {
    case Value::Switch:
        return "a switch, 0 or 1";
    case Value::Integer:
        return "an integer of 32 bits";
    case Value::Counter:
        return "a counter, 0 to 4294967295";
    case Value::Text:
        return "a text in UTF-8 of at most 4096 bytes";
    case Value::None:
        break;
    }
    return "nothing";
}

void bindValue(Statement::Run& run, int parameter, const Value& value) {
    if (value.type() == Value::Text)
        run.bind(parameter, value.getText());
    else
        run.bind(parameter, numberIn(value));
}

void writeCell(velta::protocol::Writer& writer, Value::TypeCode type, const Statement::Run& run, int column) {
    writer.number8(static_cast<std::uint8_t>(type));
    if (type == Value::Text) {
        writer.text(run.text(column).substr(0, textLimit));
        return;
    }
    const Range range = rangeOf(type);
    writer.number32(static_cast<std::uint32_t>(std::clamp(run.number(column), range.least, range.most)));
}

std::string literal(const Value& value) {
    if (value.type() != Value::Text)
        return std::to_string(numberIn(value));
    std::string sql = "'";
    for (const char c : value.getText())
        sql.append(c == '\'' ? 2 : 1, c);
    return sql + '\'';
}

std::string shown(std::string_view text) {
    constexpr std::size_t most = 64;
    std::string out(text.substr(0, most));
    for (char& c : out)
        if (c < ' ' || c > '~')
            c = '?';
    return text.size() > most ? out + "..." : out;
}

} // namespace store
