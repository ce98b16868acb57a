// A client decodes whatever a store may send.
#include "fuzz/frames.h"
#include "velta/protocol/message.h"
#include "velta/protocol/wire.h"

namespace {

using velta::protocol::Reply;
using velta::protocol::ReplyKind;

std::string encoded(const Reply& reply) {
    std::string bytes;
    encode(reply, bytes);
    return bytes.substr(velta::protocol::frameHeader);
}

void checkRows(const Reply& reply) {
    velta::protocol::Reader reader(reply.rows.cells);
    for (std::size_t left = reply.rows.rows * reply.rows.columns.size(); left > 0; --left)
        (void)reader.value();
    fuzz::require(reader.complete(), "the cells of decoded rows can be read");
}

void check(std::string_view message) {
    Reply reply;
    if (!decode(message, reply))
        return;
    if (reply.kind == ReplyKind::Rows)
        checkRows(reply);
    fuzz::require(reply.kind != ReplyKind::Failed || !reply.result.ok(), "a failure has a code");
    // A flag may be any number but 0, and becomes 1: only such bytes may differ.
    const std::string again = encoded(reply);
    fuzz::require(again.size() == message.size(), "a reply encodes to its size");
    Reply second;
    fuzz::require(decode(again, second), "an encoded reply decodes");
    fuzz::require(encoded(second) == again, "a decoded reply encodes to the same");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    fuzz::cutMessages(fuzz::Arrival(input), check);
    return 0;
}
