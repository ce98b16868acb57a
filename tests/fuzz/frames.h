#pragma once

#include "fuzz/input.h"
#include "velta/protocol/frame.h"

#include <string>
#include <string_view>
#include <vector>

namespace fuzz {

// How the input of a frame decoder begins. The lowest bit of its first byte says what follows: messages, each
// after its length of 16 bits, which are put into correct frames here; or raw bytes. The next four bits are
// the number of bytes that follow first: the sizes of the pieces in which the rest arrives.
struct Arrival {
    explicit Arrival(Input& input) {
        const std::uint8_t first = input.byte();
        for (int left = first >> 1 & 15; left > 0; --left)
            pieces.push_back(std::size_t{1} + input.byte());
        if ((first & 1) == 0)
            bytes = input.rest();
        while (!input.atEnd()) {
            const std::size_t begin = velta::protocol::beginFrame(bytes);
            bytes += input.text(static_cast<std::size_t>(input.number(2)));
            velta::protocol::endFrame(bytes, begin);
        }
    }

    std::string_view piece(std::size_t index, std::size_t from) const {
        const std::size_t size = pieces.empty() ? bytes.size() : pieces[index % pieces.size()];
        return std::string_view(bytes).substr(from, size);
    }

    std::string bytes;
    std::vector<std::size_t> pieces;
};

// Whether the frame that begins there has an impossible length.
inline bool isImpossible(const std::string& bytes, std::size_t from, std::size_t to) {
    if (to - from < velta::protocol::frameHeader)
        return false;
    Input header(reinterpret_cast<const std::uint8_t*>(bytes.data()) + from, velta::protocol::frameHeader);
    const std::uint64_t size = header.number(velta::protocol::frameHeader);
    return size == 0 || size > velta::protocol::frameLimit;
}

// Lets the bytes arrive and calls back for each message that the reader cuts from them.
template <typename OnMessage>
void cutMessages(const Arrival& arrival, OnMessage onMessage) {
    using velta::protocol::frameHeader;
    using velta::protocol::frameLimit;
    using velta::protocol::FrameReader;
    FrameReader reader;
    std::size_t arrived = 0;
    std::size_t taken = 0;
    for (std::size_t i = 0; arrived < arrival.bytes.size(); ++i) {
        const std::string_view piece = arrival.piece(i, arrived);
        reader.append(piece.data(), piece.size());
        arrived += piece.size();
        std::string_view message;
        FrameReader::Next next = reader.next(message);
        for (; next == FrameReader::Next::Message; next = reader.next(message)) {
            require(!message.empty() && message.size() <= frameLimit, "a message is within its limits");
            require(message == std::string_view(arrival.bytes).substr(taken + frameHeader, message.size()),
                    "a message is what arrived");
            taken += frameHeader + message.size();
            onMessage(message);
        }
        require(reader.pending() == arrived - taken, "nothing is lost and nothing kept that was taken");
        require((next == FrameReader::Next::Broken) == isImpossible(arrival.bytes, taken, arrived),
                "a length that can't be breaks the stream, and nothing else does");
        if (next == FrameReader::Next::Broken) {
            require(reader.next(message) == FrameReader::Next::Broken, "a broken stream stays broken");
            return;
        }
        require(reader.pending() < frameHeader + frameLimit, "no more than a frame waits for its rest");
    }
}

} // namespace fuzz
