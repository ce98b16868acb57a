#pragma once

#include "velta/namelist.h"
#include "velta/value.h"
#include "velta/valuelist.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// How numbers, texts and cells are encoded in a message: in network byte order; a text follows its length in
// bytes.
namespace velta::protocol {

// Appends to a text of bytes that the caller owns.
class Writer {
public:
    explicit Writer(std::string& bytes) : bytes_(bytes) {}

    void number8(std::uint8_t value);
    void number32(std::uint32_t value);
    void text(std::string_view value);
    void value(const Value& value);
    void values(const ValueList& values);
    void names(const NameList& names);

private:
    std::string& bytes_;
};

// Decodes a message. It never reads past the end: missing or invalid bytes make it fail for good, and
// everything read afterwards is empty.
class Reader {
public:
    explicit Reader(std::string_view bytes) : bytes_(bytes) {}

    bool ok() const { return ok_; }
    // True when the whole message was read and all of it was valid.
    bool complete() const { return ok_ && bytes_.empty(); }
    std::string_view rest() const { return bytes_; }

    std::uint8_t number8();
    std::uint32_t number32();
    std::string_view text();
    Value value();
    void values(ValueList& values);
    void names(NameList& names);
    // Reads a count. Fails if the remaining bytes can't hold that many elements of at least so many bytes
    // each.
    std::uint32_t count(std::size_t leastBytesEach);
    // Skips one value.
    void skipValue();
    void fail();

private:
    std::string_view take(std::size_t size);

    std::string_view bytes_;
    bool ok_ = true;
};

} // namespace velta::protocol
