// A store decodes whatever a client may send.
#include "fuzz/frames.h"
#include "velta/protocol/message.h"

namespace {

using velta::protocol::Request;

bool same(const Request& a, const Request& b) {
    return a.kind == b.kind && a.sequence == b.sequence && a.table == b.table && a.keyColumn == b.keyColumn &&
           a.key == b.key && a.number == b.number && a.names == b.names && a.values == b.values;
}

void check(std::string_view message) {
    Request request;
    if (!decode(message, request))
        return;
    std::string bytes;
    encode(request, bytes);
    const std::string_view again = std::string_view(bytes).substr(velta::protocol::frameHeader);
    fuzz::require(again == message, "a decoded request encodes to what it was");
    Request second;
    fuzz::require(decode(again, second) && same(request, second), "an encoded request decodes to the same");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    fuzz::cutMessages(fuzz::Arrival(input), check);
    return 0;
}
