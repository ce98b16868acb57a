#include "velta/protocol/wire.h"

namespace velta::protocol {

namespace {

constexpr std::size_t bytesOfNumber = 4;
constexpr std::size_t leastBytesOfText = bytesOfNumber;
constexpr std::size_t leastBytesOfValue = 1;

} // namespace

void Writer::number8(std::uint8_t value) {
    bytes_.push_back(static_cast<char>(value));
}

void Writer::number32(std::uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8)
        number8(static_cast<std::uint8_t>(value >> shift));
}

void Writer::text(std::string_view value) {
    number32(static_cast<std::uint32_t>(value.size()));
    bytes_.append(value);
}

void Writer::value(const Value& value) {
    number8(static_cast<std::uint8_t>(value.type()));
    if (value.type() == Value::Text)
        text(value.getText());
    else if (value.type() != Value::None)
        number32(static_cast<std::uint32_t>(value.getInteger()));
}

void Writer::values(const ValueList& values) {
    number32(static_cast<std::uint32_t>(values.size()));
    for (const ValueList::Cell& cell : values) {
        text(cell.first);
        value(cell.second);
    }
}

void Writer::names(const NameList& names) {
    number32(static_cast<std::uint32_t>(names.size()));
    for (const std::string& name : names)
        text(name);
}

std::uint8_t Reader::number8() {
    const std::string_view byte = take(1);
    return byte.empty() ? std::uint8_t{0} : static_cast<std::uint8_t>(byte[0]);
}

std::uint32_t Reader::number32() {
    std::uint32_t number = 0;
    for (const char byte : take(bytesOfNumber))
        number = number << 8 | static_cast<std::uint8_t>(byte);
    return number;
}

std::string_view Reader::text() {
    return take(number32());
}

Value Reader::value() {
    const unsigned type = number8();
    Value value(type);
    if (type == Value::Text)
        value.setText(std::string(text()));
    else if (type > Value::Text)
        fail();
    else if (type != Value::None)
        value.setInteger(static_cast<std::int32_t>(number32()));
    return value;
}

void Reader::skipValue() {
    const unsigned type = number8();
    if (type == Value::Text)
        (void)text();
    else if (type > Value::Text)
        fail();
    else if (type != Value::None)
        (void)number32();
}

void Reader::values(ValueList& values) {
    const std::uint32_t cells = count(leastBytesOfText + leastBytesOfValue);
    values.reserve(cells);
    for (std::uint32_t i = 0; i < cells && ok_; ++i) {
        const std::string name(text());
        values.add(name, value());
    }
}

void Reader::names(NameList& names) {
    const std::uint32_t texts = count(leastBytesOfText);
    names.reserve(texts);
    for (std::uint32_t i = 0; i < texts && ok_; ++i)
        names.emplace_back(text());
}

std::uint32_t Reader::count(std::size_t leastBytesEach) {
    const std::uint32_t number = number32();
    if (number > bytes_.size() / leastBytesEach) {
        fail();
        return 0;
    }
    return number;
}

void Reader::fail() {
    ok_ = false;
    bytes_ = {};
}

std::string_view Reader::take(std::size_t size) {
    if (size > bytes_.size()) {
        fail();
        return {};
    }
    const std::string_view taken = bytes_.substr(0, size);
    bytes_.remove_prefix(size);
    return taken;
}

} // namespace velta::protocol
