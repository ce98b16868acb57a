#include "cfg/connection.h"

#include "cfg/connecting.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <iterator>
#include <utility>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace orv::cfg {

using velta::protocol::EResultCode;
using velta::protocol::FrameReader;
using velta::protocol::Reply;
using velta::protocol::ReplyKind;
using velta::protocol::Request;
using velta::protocol::RequestKind;
namespace code = velta::protocol::code;

Connection::Connection(std::string socketPath, std::string clientName, unsigned answerTimeout)
    : socketPath_(std::move(socketPath)),
      clientName_(std::move(clientName)),
      answerTimeout_(answerTimeout),
      log_(clientName_.c_str(), "connection") {}

Connection::~Connection() {
    close();
}

EResultCode Connection::open(std::chrono::milliseconds patience) {
    if (isStopping())
        return code::stopping;
    EResultCode result = connectTo(socketPath_, patience, socket_);
    if (result.ok())
        result = checkPeer();
    if (result.ok())
        result = greet();
    if (!result.ok())
        close();
    greeted_ = result.ok();
    return result;
}

void Connection::shut(const EResultCode& why) {
    if (!isOpen())
        return;
    if (onClose_)
        onClose_(why);
    ::close(socket_);
    socket_ = -1;
    greeted_ = false;
    inTransaction_ = false;
    (void)std::exchange(frames_, FrameReader()); // assigning a new one would keep the old one's memory
    (void)notices_.take();
}

EResultCode Connection::checkPeer() {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(socket_, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
        return EResultCode(code::notConnected, systemText("SO_PEERCRED"));
    if (peer.uid != 0 && peer.uid != geteuid())
        return giveUp(EResultCode(code::notPermitted, "it is run by user " + std::to_string(peer.uid)));
    return {};
}

EResultCode Connection::greet() {
    Request hello;
    hello.kind = RequestKind::Hello;
    hello.number = velta::protocol::version;
    hello.key = clientName_;
    Reply reply;
    EResultCode result = exchange(hello, reply);
    if (result.ok() && reply.number != velta::protocol::version)
        result = giveUp(EResultCode(code::wrongVersion, std::to_string(reply.number)));
    return result;
}

EResultCode Connection::exchange(Request& request, Reply& reply, ReplyKind expected) {
    const Clock::time_point deadline = answerDeadline();
    EResultCode result = send(request, deadline);
    if (result.ok())
        result = awaitReply(request, expected, deadline, reply);
    tellLeftover();
    return result;
}

EResultCode Connection::exchangeRows(Request& request, const PieceHandler& onPiece) {
    const Clock::time_point deadline = answerDeadline();
    EResultCode result = send(request, deadline);
    for (bool last = false; result.ok() && !last;) {
        Reply reply;
        result = awaitReply(request, ReplyKind::Rows, deadline, reply);
        if (!result.ok())
            break;
        if (const char* fault = onPiece(reply.rows))
            return broken(fault);
        last = reply.rows.last;
    }
    tellLeftover();
    return result;
}

void Connection::tellLeftover() const {
    if (onLeftover_ && (!notices_.empty() || frames_.pending() > 0))
        onLeftover_();
}

// Gives the request a sequence number and appends it, or appends nothing if it is too large.
EResultCode Connection::encode(Request& request, std::string& bytes) {
    if (!isOpen())
        return code::notConnected;
    const std::size_t begin = bytes.size();
    request.sequence = ++sequence_;
    velta::protocol::encode(request, bytes);
    const std::size_t size = bytes.size() - begin;
    if (size <= velta::protocol::frameHeader + velta::protocol::frameLimit)
        return {};
    bytes.resize(begin);
    return EResultCode(code::tooLarge, std::to_string(size) + " bytes in one message");
}

EResultCode Connection::send(Request& request, Clock::time_point deadline) {
    std::string bytes;
    const EResultCode encoded = encode(request, bytes);
    if (!encoded.ok())
        return encoded;
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count = ::send(socket_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count > 0) {
            sent += static_cast<std::size_t>(count);
            continue;
        }
        if (errno == EPIPE || errno == ECONNRESET)
            return {}; // the store may have sent the reason before it closed; reading the answer will tell
        if (errno == EAGAIN) {
            const EResultCode waited = wait(POLLOUT, deadline);
            if (!waited.ok())
                return waited;
        } else if (errno != EINTR) {
            return lost(EResultCode(code::notConnected, systemText("send")));
        }
    }
    return {};
}

EResultCode Connection::awaitReply(const Request& request, ReplyKind expected, Clock::time_point deadline,
                                   Reply& reply) {
    const EResultCode result = awaitAnyReply(deadline, reply);
    return result.ok() ? check(reply, request.sequence, expected) : result;
}

// The result of an answer to the request with that sequence number.
EResultCode Connection::check(const Reply& reply, std::uint32_t sequence, ReplyKind expected) {
    if (reply.kind == ReplyKind::Failed && reply.sequence == 0)
        return giveUp(reply.result); // the store turns this client away, and closes
    if (reply.sequence != sequence)
        return broken("an answer to something that was not asked");
    if (reply.kind == ReplyKind::Failed)
        return reply.result;
    return reply.kind == expected ? EResultCode() : broken("an answer of another kind than was asked for");
}

EResultCode Connection::awaitAnyReply(Clock::time_point deadline, Reply& reply) {
    bool found = false;
    EResultCode result = nextReply(reply, found);
    while (result.ok() && !found) {
        result = wait(POLLIN, deadline);
        if (result.ok())
            result = readAvailable();
        if (result.ok())
            result = nextReply(reply, found);
    }
    return result;
}

// A request to stop counts even if the answer has arrived as well: no transaction begins after it.
EResultCode Connection::wait(short events, Clock::time_point deadline) {
    for (;;) {
        if (stopping_.noted() && !inTransaction_)
            return lost(code::stopping);
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(stopping_.limit(deadline) - Clock::now()).count();
        if (left <= 0)
            return lost(stopping_.noted() ? code::stopping : code::timedOut);
        pollfd polled[] = {{socket_, events, 0}, {stopping_.descriptor(), POLLIN, 0}};
        const int ready =
            poll(polled, std::size(polled), static_cast<int>(std::min<decltype(left)>(left, INT_MAX)));
        if (ready < 0 && errno != EINTR)
            return lost(EResultCode(code::notConnected, systemText("poll")));
        if (ready > 0 && polled[1].revents != 0)
            stopping_.note();
        else if (ready > 0)
            return {};
    }
}

EResultCode Connection::readAvailable() {
    std::array<char, 64 * 1024> bytes;
    const ssize_t count = recv(socket_, bytes.data(), bytes.size(), 0);
    if (count > 0) {
        frames_.append(bytes.data(), static_cast<std::size_t>(count));
        return {};
    }
    if (count < 0 && (errno == EAGAIN || errno == EINTR))
        return {};
    if (count == 0 && frames_.pending() > 0)
        return broken("the end of the connection within a frame");
    return lost(EResultCode(code::notConnected, count == 0 ? "closed by the store" : systemText("recv")));
}

// Keeps the notices that come first, and stops at the first reply. A Rows reply is valid until the next read.
EResultCode Connection::nextReply(Reply& reply, bool& found) {
    for (;;) {
        std::string_view message;
        switch (frames_.next(message)) {
        case FrameReader::Next::More:
            return {};
        case FrameReader::Next::Broken:
            return broken("a frame of an impossible length");
        case FrameReader::Next::Message:
            break;
        }
        reply = Reply();
        if (!velta::protocol::decode(message, reply))
            return broken("a malformed message");
        if (reply.kind != ReplyKind::Notice) {
            found = true;
            return {};
        }
        if (!notices_.keep(reply.names))
            return broken("more notices than a store can have");
    }
}

void Connection::receive() {
    // What was read after the last answer is taken first: there may be nothing else to read.
    if (isOpen() && takeBuffered() && readAvailable().ok())
        (void)takeBuffered();
}

void Connection::takeLeftover() {
    if (isOpen() && frames_.pending() > 0)
        (void)takeBuffered();
}

// False if the connection closed. There is no caller to tell here: the next operation fails.
bool Connection::takeBuffered() {
    Reply reply;
    bool found = false;
    if (!nextReply(reply, found).ok())
        return false;
    if (found && reply.kind == ReplyKind::Failed && reply.sequence == 0)
        (void)giveUp(reply.result);
    else if (found)
        (void)broken("an answer to something that was not asked");
    return !found;
}

EResultCode Connection::lost(EResultCode why) {
    if (greeted_ && why.code() != code::stopping)
        complain("connection lost: " + why.strerror());
    shut(why);
    return why;
}

EResultCode Connection::giveUp(EResultCode why) {
    complain("can't use the configuration store: " + why.strerror());
    shut(why);
    return why;
}

EResultCode Connection::broken(const char* what) {
    complain(std::string("the configuration store sent ") + what + ", connection closed");
    const EResultCode why(code::badMessage, what);
    shut(why);
    return why;
}

void Connection::complain(const std::string& text) {
    if (text == lastComplaint_)
        return;
    lastComplaint_ = text;
    log_.warning("%s: %s", socketPath_.c_str(), text.c_str());
}

} // namespace orv::cfg
