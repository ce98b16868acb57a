#include "store/server/acceptor.h"

#include "velta/protocol/message.h"

#include <cerrno>
#include <cstring>
#include <exception>
#include <string>
#include <utility>

#include <sys/socket.h>

namespace store {

using velta::net::EventDispatcher;
namespace code = velta::protocol::code;

namespace {

constexpr int acceptedATurn = 128; // as many as the listen queue holds
constexpr auto pauseLength = std::chrono::milliseconds(500);

} // namespace

Acceptor::Acceptor(EventDispatcher& dispatcher, ListeningSocket& socket, std::optional<gid_t> group,
                   const Places& places, ClientLines& lines, Admit admit)
    : dispatcher_(dispatcher),
      socket_(socket),
      group_(group),
      places_(places),
      lines_(lines),
      admit_(std::move(admit)) {
    dispatcher_.add(socket_.descriptor(), EventDispatcher::Readable, [this](unsigned) { accept(); });
}

void Acceptor::resume(Clock::time_point now) {
    if (!pausedUntil_ || now < *pausedUntil_)
        return;
    pausedUntil_.reset();
    dispatcher_.setInterest(socket_.descriptor(), EventDispatcher::Readable);
}

void Acceptor::accept() {
    for (int i = 0; i < acceptedATurn && !pausedUntil_; ++i) {
        Descriptor connection(accept4(socket_.descriptor(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (connection.get() >= 0)
            look(std::move(connection));
        else if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM)
            pause(std::strerror(errno)); // the connection stays in the queue and would wake us again
        else if (errno != EINTR && errno != ECONNABORTED)
            return;
    }
}

void Acceptor::pause(const char* reason) {
    pausedUntil_ = Clock::now() + pauseLength;
    dispatcher_.setInterest(socket_.descriptor(), 0);
    lines_.error("accept", std::string("no further client can be taken for a moment: ") + reason);
}

void Acceptor::look(Descriptor connection) {
    const std::optional<Peer> peer = peerOf(connection.get());
    if (!peer)
        return;
    try {
        if (!isPermitted(*peer, connection.get(), group_)) {
            turnAway(connection, code::notPermitted);
            lines_.warn("not permitted", *peer,
                        "a client that is not permitted was turned away (" + peer->text() + ")");
        } else if (const char* reason = places_.refusal(*peer)) {
            turnAway(connection, {code::tooManyClients, reason});
            lines_.warn("too many", *peer,
                        "one client too many was turned away (" + peer->text() + "): " + reason);
        } else {
            admit_(std::move(connection), *peer);
        }
    } catch (const std::exception& error) {
        lines_.error("look", std::string("a client can't be served: ") + error.what());
    }
}

// The socket's buffer is still empty, so the few bytes fit.
void Acceptor::turnAway(const Descriptor& connection, const velta::protocol::EResultCode& why) {
    velta::protocol::Reply reply;
    reply.kind = velta::protocol::ReplyKind::Failed;
    reply.result = why;
    std::string bytes;
    velta::protocol::encode(reply, bytes);
    (void)send(connection.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT); // a courtesy
}

} // namespace store
