// Cuts any bytes into JSON objects: the pieces in which they come make no difference, and what a parser takes
// for an object is cut as one.
#include "store/cluster/jsonstream.h"

#include "fuzz/input.h"

#include <nlohmann/json.hpp>
#include <vector>

namespace {

using fuzz::require;
using store::JsonStream;

constexpr std::size_t sizeLimit = 256; // bytes of an object

struct Cut {
    std::vector<std::string> messages;
    std::string complaint;

    bool operator==(const Cut& other) const {
        return messages == other.messages && complaint == other.complaint;
    }
};

Cut cut(const std::string& text, std::size_t pieceSize) {
    JsonStream stream(sizeLimit);
    Cut result;
    for (std::size_t at = 0; at < text.size(); at += pieceSize) {
        stream.append(std::string_view(text).substr(at, pieceSize));
        std::string_view message;
        JsonStream::Next next = stream.next(message);
        for (; next == JsonStream::Next::Message; next = stream.next(message))
            result.messages.emplace_back(message);
    }
    result.complaint = stream.complaint();
    return result;
}

// What a parser takes for one JSON text.
void checkParsed(const std::string& text, const Cut& whole) {
    const nlohmann::json parsed = nlohmann::json::parse(text);
    const bool isLimited = whole.complaint.find("more than") != std::string::npos;
    // A parser skips a mark of the byte order, and stops at a zero byte, wherever it stands.
    const bool isParsersOwn = text.front() == '\xef' || text.find('\0') != std::string::npos;
    if (!parsed.is_object() || isLimited || isParsersOwn)
        return;
    require(whole.complaint.empty() && whole.messages.size() == 1, "an object is one message");
    require(nlohmann::json::parse(whole.messages[0]) == parsed, "and the whole of it");
    require(cut(text + text, text.size()).messages.size() == 2, "what follows it is another one");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::size_t pieceSize = input.byte() + std::size_t{1};
    const std::string text = input.rest();
    const Cut whole = cut(text, text.size() + 1);
    require(whole == cut(text, pieceSize), "pieces make no difference");
    for (const std::string& message : whole.messages)
        require(message.size() <= sizeLimit && message.front() == '{', "an object within the limit");
    if (nlohmann::json::accept(text))
        checkParsed(text, whole);
    return 0;
}
