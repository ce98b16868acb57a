#pragma once

#include <cstdint>
#include <string>

namespace velta {

// One cell of the configuration store.
//
// The type code says what the store holds; the content is an integer of 32 bits for the codes 1 to 3 and
// a text for code 4. A counter is unsigned: its bits travel in the integer, and getText() prints it unsigned.
class Value {
public:
    enum TypeCode : unsigned { None = 0, Switch = 1, Integer = 2, Counter = 3, Text = 4 };

    explicit Value(unsigned typeCode = None) : type_(typeCode) {}

    unsigned type() const { return type_; }

    // Keeps a code of 1 to 3; a value of any other code becomes an integer.
    void setInteger(int value);
    // The value becomes a text.
    void setText(const std::string& value);

    // A text reads as its leading decimal number, limited to 32 bits, or as 0 if it has none. A value of type
    // none reads as 0.
    int getInteger() const;
    // An integer reads in decimal. A value of type none reads as the empty text.
    std::string getText() const;

    bool operator==(const Value& other) const;
    bool operator!=(const Value& other) const { return !(*this == other); }

private:
    bool holdsInteger() const;

    unsigned type_;
    std::int32_t integer_ = 0;
    std::string text_;
};

} // namespace velta
