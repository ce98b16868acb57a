#pragma once

#include "store/cluster/bytequeue.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace store {

// Cuts a stream of bytes into JSON objects, which stand on it back to back and without frames. It only finds
// where an object ends; whether that is JSON is for the parser to say. It takes time linear in the bytes,
// whatever the pieces in which they come.
class JsonStream {
public:
    enum class Next { Message, More, Broken };

    static constexpr std::size_t depthLimit = 32; // of objects and arrays within each other
    // In one object, at all depths. Each takes some 50 bytes of memory once it is parsed, and two in the
    // stream.
    static constexpr std::size_t valueLimit = 512 * std::size_t{1024};

    // A larger object, in bytes, is refused.
    explicit JsonStream(std::size_t sizeLimit) : sizeLimit_(sizeLimit) {}

    void append(std::string_view bytes) { bytes_.append(bytes); }
    // The next whole object. It is valid until the next call. What is broken once stays it.
    Next next(std::string_view& message);
    // Why it is broken, and where.
    const std::string& complaint() const { return complaint_; }

private:
    enum class Place { Between, Object, Text, Escape };

    void dropTaken();
    void skipBlanks();
    // Goes past one byte; false if it can't stand there.
    bool scan(char byte);
    bool scanInObject(char byte);
    bool enter();
    bool countValue();
    bool refuse(const std::string& what);

    std::size_t sizeLimit_;
    ByteQueue bytes_;            // from the begin of an object on
    std::uint64_t position_ = 0; // of the first of them in the stream
    std::size_t taken_ = 0;      // bytes of the object that was given out last
    std::size_t scanned_ = 0;    // bytes of the next one
    Place place_ = Place::Between;
    std::size_t depth_ = 0;
    std::size_t values_ = 0;
    std::string complaint_;
};

} // namespace store
