#include "store/cluster/jsonstream.h"

#include <algorithm>

namespace store {

namespace {

constexpr std::string_view blanks = " \t\r\n";

std::string shownByte(char byte) {
    if (byte > ' ' && byte <= '~')
        return std::string("\"") + byte + '"';
    return "the byte " + std::to_string(static_cast<unsigned char>(byte));
}

} // namespace

JsonStream::Next JsonStream::next(std::string_view& message) {
    if (!complaint_.empty())
        return Next::Broken;
    dropTaken();
    if (place_ == Place::Between)
        skipBlanks();
    const std::string_view bytes = bytes_.view();
    while (scanned_ < bytes.size()) {
        if (!scan(bytes[scanned_]))
            return Next::Broken;
        ++scanned_;
        if (place_ != Place::Between)
            continue;
        taken_ = scanned_;
        message = bytes.substr(0, taken_);
        return Next::Message;
    }
    return Next::More;
}

void JsonStream::dropTaken() {
    if (taken_ == 0)
        return;
    bytes_.drop(taken_);
    position_ += taken_;
    taken_ = 0;
    scanned_ = 0;
    values_ = 0;
}

void JsonStream::skipBlanks() {
    const std::string_view bytes = bytes_.view();
    const std::size_t count = std::min(bytes.find_first_not_of(blanks), bytes.size());
    bytes_.drop(count);
    position_ += count;
}

bool JsonStream::scan(char byte) {
    if (scanned_ == sizeLimit_)
        return refuse("an object of more than " + std::to_string(sizeLimit_) + " bytes");
    switch (place_) {
    case Place::Between:
        return byte == '{' ? enter() : refuse(shownByte(byte) + " where an object should begin");
    case Place::Object:
        return scanInObject(byte);
    case Place::Text:
        if (byte == '\\')
            place_ = Place::Escape;
        else if (byte == '"')
            place_ = Place::Object;
        return true;
    case Place::Escape:
        place_ = Place::Text;
        return true;
    }
    return false;
}

bool JsonStream::scanInObject(char byte) {
    switch (byte) {
    case '{':
    case '[':
        return enter();
    case '}':
    case ']':
        if (--depth_ == 0)
            place_ = Place::Between;
        return true;
    case '"':
        place_ = Place::Text;
        return true;
    case ',':
        return countValue();
    default:
        return true;
    }
}

bool JsonStream::enter() {
    if (depth_ == depthLimit)
        return refuse("objects and arrays more than " + std::to_string(depthLimit) + " deep");
    ++depth_;
    place_ = Place::Object;
    return countValue();
}

bool JsonStream::countValue() {
    return ++values_ <= valueLimit ||
           refuse("more than " + std::to_string(valueLimit) + " values in an object");
}

bool JsonStream::refuse(const std::string& what) {
    complaint_ = what + ", at byte " + std::to_string(position_ + scanned_) + " of the stream";
    return false;
}

} // namespace store
