#include "velta/value.h"

#include "orv/string.h"

namespace velta {

void Value::setInteger(int value) {
    if (!holdsInteger())
        type_ = Integer;
    integer_ = value;
    text_.clear();
}

void Value::setText(const std::string& value) {
    type_ = Text;
    integer_ = 0;
    text_ = value;
}

int Value::getInteger() const {
    return type_ == Text ? orv::string::toInteger(text_) : integer_;
}

std::string Value::getText() const {
    if (type_ == Counter)
        return std::to_string(static_cast<std::uint32_t>(integer_));
    return holdsInteger() ? std::to_string(integer_) : text_;
}

bool Value::holdsInteger() const {
    return type_ == Switch || type_ == Integer || type_ == Counter;
}

bool Value::operator==(const Value& other) const {
    return type_ == other.type_ && integer_ == other.integer_ && text_ == other.text_;
}

} // namespace velta
