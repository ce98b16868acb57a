#include "support/rawclient.h"

#include <array>
#include <cerrno>
#include <stdexcept>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

RawClient::RawClient(const std::string& path)
    : descriptor_(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    if (connect(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error("no server at " + path);
}

RawClient::~RawClient() {
    disconnect();
}

bool RawClient::isHungUp() const {
    pollfd watched{descriptor_, 0, 0};
    return poll(&watched, 1, 0) > 0 && (watched.revents & POLLHUP) != 0;
}

void RawClient::disconnect() {
    if (descriptor_ >= 0)
        close(descriptor_);
    descriptor_ = -1;
}

void RawClient::finishSending() const {
    (void)shutdown(descriptor_, SHUT_WR); // fails only where the server is gone
}

std::size_t RawClient::sendBytes(const std::string& bytes) const {
    const ssize_t size = ::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    return size < 0 ? 0 : static_cast<std::size_t>(size);
}

std::uint32_t RawClient::sendAll(const std::vector<velta::protocol::Request>& requests) {
    std::string bytes;
    for (velta::protocol::Request request : requests) {
        request.sequence = ++sequence_;
        encode(request, bytes);
    }
    if (sendBytes(bytes) != bytes.size())
        throw std::runtime_error("request not sent");
    return sequence_;
}

void RawClient::receive(std::size_t most) {
    std::array<char, 4096> bytes{};
    ssize_t size = 1;
    for (std::size_t taken = 0; taken < most && size > 0; taken += bytes.size()) {
        size = recv(descriptor_, bytes.data(), bytes.size(), 0);
        if (size > 0)
            input_.append(bytes.data(), static_cast<std::size_t>(size));
        std::string_view message;
        while (input_.next(message) == velta::protocol::FrameReader::Next::Message)
            take(message);
    }
    atEnd = atEnd || size == 0 || (size < 0 && errno != EAGAIN && errno != EWOULDBLOCK);
}

void RawClient::take(std::string_view message) {
    Answer answer;
    if (!decode(message, answer.reply))
        throw std::runtime_error("reply that is none");
    if (answer.reply.kind == velta::protocol::ReplyKind::Notice) {
        notices.push_back(answer.reply.names);
        order.emplace_back("notice");
        return;
    }
    const velta::protocol::RowsPiece& rows = answer.reply.rows;
    appendRows(answer.rows, rows.columns, rows.rows, rows.cells);
    order.push_back(std::to_string(answer.reply.sequence));
    answers.push_back(std::move(answer));
}

namespace ask {

Request plain(RequestKind kind) {
    Request request;
    request.kind = kind;
    return request;
}

Request hello(std::uint32_t version) {
    Request request = plain(RequestKind::Hello);
    request.number = version;
    request.key = "test";
    return request;
}

Request ofTable(RequestKind kind, const std::string& table) {
    Request request = plain(kind);
    request.table = table;
    return request;
}

Request readTable(const std::string& table) {
    return ofTable(RequestKind::ReadTable, table);
}

Request writeSingle(const std::string& table, const velta::ValueList& values) {
    Request request = ofTable(RequestKind::WriteSingle, table);
    request.values = values;
    return request;
}

Request insert(const std::string& table, const velta::ValueList& values) {
    Request request = ofTable(RequestKind::Insert, table);
    request.values = values;
    return request;
}

Request begin(std::uint32_t milliseconds) {
    Request request = plain(RequestKind::Begin);
    request.number = milliseconds;
    return request;
}

Request subscribe(const velta::NameList& tables, bool leaveOutOwn) {
    Request request = plain(RequestKind::Subscribe);
    request.names = tables;
    request.number = leaveOutOwn ? 1 : 0;
    return request;
}

} // namespace ask
