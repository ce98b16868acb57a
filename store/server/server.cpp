#include "store/server/server.h"

#include "store/log.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

#include <sys/socket.h>
#include <unistd.h>

namespace store {

using velta::net::EventDispatcher;
namespace code = velta::protocol::code;

namespace {

constexpr int acceptedARound = 16;
constexpr auto acceptPause = std::chrono::milliseconds(500);

// Turns a connection away. Its socket is new, so the few bytes fit.
void refuse(int descriptor, const velta::protocol::EResultCode& result) {
    velta::protocol::Reply reply;
    reply.kind = velta::protocol::ReplyKind::Failed;
    reply.result = result;
    std::string bytes;
    velta::protocol::encode(reply, bytes);
    (void)send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT); // a courtesy
    close(descriptor);
}

} // namespace

Server::Server(EventDispatcher& dispatcher, Database& database, ListeningSocket& socket,
               const ServerOptions& options)
    : dispatcher_(dispatcher),
      socket_(socket),
      options_(options),
      queue_(options.transaction),
      handler_(
          database, queue_, options.turn,
          [this](const velta::NameList& tables, ClientId by) { tellCommitted(tables, by); },
          [this] { return unsent() > options_.output; }) {
    dispatcher_.add(socket_.descriptor(), EventDispatcher::Readable, [this](unsigned) { accept(); });
}

Server::~Server() {
    dispatcher_.remove(socket_.descriptor());
    handler_.rollBack();
}

void Server::handleEvents(unsigned milliseconds) {
    dispatcher_.handleEvents(untilDeadline(milliseconds));
    settle();
}

void Server::shutDown(std::chrono::milliseconds patience) {
    dispatcher_.remove(socket_.descriptor());
    handler_.rollBack();
    for (auto& [id, client] : clients_)
        client.session->pause();
    const Clock::time_point end = Clock::now() + patience;
    for (Clock::time_point now = Clock::now(); unsent() > 0 && now < end; now = Clock::now()) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - now).count() + 1;
        dispatcher_.handleEvents(static_cast<unsigned>(left));
        (void)dropClosed();
    }
    clients_.clear();
}

std::size_t Server::unsent() const {
    std::size_t bytes = 0;
    for (const auto& [id, client] : clients_)
        bytes += client.session->unsent();
    return bytes;
}

void Server::accept() {
    for (int i = 0; i < acceptedARound && !acceptAgain_; ++i) {
        const int descriptor = accept4(socket_.descriptor(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (descriptor >= 0)
            admitClient(descriptor);
        else if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM)
            pauseAccepting(
                std::strerror(errno)); // the connection stays in line and would wake us again at once
        else if (errno != EINTR && errno != ECONNABORTED)
            return;
    }
}

void Server::admitClient(int descriptor) {
    const std::optional<Peer> peer = peerOf(descriptor);
    if (!peer) {
        close(descriptor);
    } else if (!isPermitted(*peer, descriptor, options_.group)) {
        log::warning("a client that is not permitted was turned away (" + peer->text() + ")");
        refuse(descriptor, code::notPermitted);
    } else if (clients_.size() >= options_.clients) {
        log::warning("one client too many was turned away (" + peer->text() + ")");
        refuse(descriptor, code::tooManyClients);
    } else {
        addClient(descriptor, *peer);
    }
}

void Server::addClient(int descriptor, const Peer& peer) {
    const ClientId id = nextId_++;
    const auto handle = [this](Session& session, const velta::protocol::Request& request) {
        handler_.handle(session, request);
    };
    try {
        clients_[id] = {std::make_unique<Session>(dispatcher_, descriptor, id, peer, handle),
                        Clock::now() + options_.greeting};
    } catch (const std::system_error& error) {
        clients_.erase(id);
        log::error(std::string("a client can't be served: ") + error.what());
    }
}

void Server::pauseAccepting(const char* reason) {
    log::error(std::string("no further client can be taken for a moment: ") + reason);
    acceptAgain_ = Clock::now() + acceptPause;
    dispatcher_.setInterest(socket_.descriptor(), 0);
}

void Server::resumeAccepting(Clock::time_point now) {
    if (!acceptAgain_ || now < *acceptAgain_)
        return;
    acceptAgain_.reset();
    dispatcher_.setInterest(socket_.descriptor(), EventDispatcher::Readable);
}

// One transaction that ends lets the next client in, whose requests may be here already and end its own: done
// in a loop, so that no chain of them goes deep.
void Server::settle() {
    const Clock::time_point now = Clock::now();
    resumeAccepting(now);
    closeSilent(now);
    bool again = true;
    while (again) {
        again = dropClosed();
        again = expireTransaction(now) || again;
        again = admitNext(now) || again; // before it is too late for one whose turn it is now
        again = endWaiting(now) || again;
    }
}

bool Server::dropClosed() {
    bool any = false;
    for (auto client = clients_.begin(); client != clients_.end();) {
        if (!client->second.session->isClosed()) {
            ++client;
            continue;
        }
        log::debug(client->second.session->text() + " is gone");
        handler_.forget(client->first);
        client = clients_.erase(client);
        any = true;
    }
    return any;
}

bool Server::expireTransaction(Clock::time_point now) {
    const std::optional<ClientId> owner = queue_.takeExpired(now);
    if (!owner)
        return false;
    log::warning(clients_.at(*owner).session->text() + " held a transaction for too long, it is rolled back");
    handler_.expire(*owner);
    return true;
}

bool Server::endWaiting(Clock::time_point now) {
    const std::optional<ClientId> client = queue_.takeTimedOut(now);
    if (!client)
        return false;
    Session& session = *clients_.at(*client).session;
    handler_.busy(session);
    session.resume();
    return true;
}

bool Server::admitNext(Clock::time_point now) {
    const std::optional<ClientId> client = queue_.admit(now);
    if (!client)
        return false;
    Session& session = *clients_.at(*client).session;
    handler_.grant(session);
    session.resume();
    return true;
}

void Server::closeSilent(Clock::time_point now) {
    for (auto& [id, client] : clients_) {
        Session& session = *client.session;
        if (session.isClosed() || now < patienceEnd(client))
            continue;
        log::warning(session.text() +
                     (session.hasGreeted() ? " does not read its answers" : " did not greet in time") +
                     ", connection closed");
        session.close();
    }
}

// When a client that does not do its part is closed.
Clock::time_point Server::patienceEnd(const Client& client) const {
    if (!client.session->hasGreeted())
        return client.greetUntil;
    const std::optional<Clock::time_point> stalled = client.session->stalledSince();
    return stalled ? *stalled + options_.reading : Clock::time_point::max();
}

void Server::tellCommitted(const velta::NameList& tables, ClientId by) {
    for (auto& [id, client] : clients_)
        if (!client.session->isClosed())
            client.session->tablesChanged(tables, id == by);
}

unsigned Server::untilDeadline(unsigned milliseconds) const {
    Clock::time_point next = queue_.nextDeadline();
    if (acceptAgain_)
        next = std::min(next, *acceptAgain_);
    for (const auto& [id, client] : clients_)
        next = std::min(next, patienceEnd(client));
    const Clock::time_point now = Clock::now();
    if (next <= now)
        return 0;
    // Rounded up: woken a moment too early there would be nothing to do.
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(next - now).count() + 1;
    return static_cast<unsigned>(std::min<std::chrono::milliseconds::rep>(left, milliseconds));
}

} // namespace store
