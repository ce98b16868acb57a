#include "store/server/server.h"

#include "store/log.h"

#include <algorithm>
#include <exception>
#include <new>
#include <utility>

namespace store {

namespace code = velta::protocol::code;

namespace {

bool isOfStorage(const Database::Result& result) {
    return result.code() == code::storageFailed || result.code() == code::storageFull ||
           result.code() == code::readOnly || result.code() == code::outcomeUnknown;
}

} // namespace

Server::Server(velta::net::EventDispatcher& dispatcher, Database& database, ListeningSocket& socket,
               const ServerOptions& options, Sharing* sharing)
    : dispatcher_(dispatcher),
      database_(database),
      options_(options),
      databaseWatch_(dispatcher, database),
      places_(options.places),
      queue_(options.transaction),
      readings_(database, options.readings),
      shared_(sharing == nullptr
                  ? nullptr
                  : std::make_unique<SharedTransactions>(
                        *sharing, database, queue_, options.turnAgain,
                        [this](const velta::NameList& tables) { tellCommitted(tables, nobody); })),
      requests_(database, queue_, readings_, shared_.get(), options.turn,
                [this](const velta::NameList& tables, ClientId by) { tellCommitted(tables, by); }),
      acceptor_(dispatcher, socket, options.group, places_, lines_,
                [this](Descriptor connection, const Peer& peer) { addClient(std::move(connection), peer); }) {
}

Server::~Server() {
    for (const auto& [id, client] : clients_)
        readings_.end(id);
    database_.transaction().rollBack();
}

void Server::handleEvents(unsigned milliseconds) {
    try {
        dispatcher_.handleEvents(moreToDo_ ? 0 : untilDeadline(milliseconds));
        round();
        settle();
    } catch (const std::bad_alloc&) { // mostly while a log line was made
        moreToDo_ = true;             // the next round does what was left undone
        log::error("out of memory");
    }
}

void Server::shutDown(std::chrono::milliseconds patience) {
    acceptor_.stop();
    const Clock::time_point end = Clock::now() + patience;
    for (Clock::time_point now = Clock::now(); isAnswering() && now < end; now = Clock::now()) {
        careForSharing(now);
        pauseAll();
        const Clock::time_point next = shared_ ? std::min(end, shared_->nextDeadline()) : end;
        const Clock::duration wait = next > now ? next - now : Clock::duration::zero();
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(wait).count() + 1;
        dispatcher_.handleEvents(moreToDo_ ? 0 : static_cast<unsigned>(left));
        round();
        dropClosed(now);
    }
    for (auto& [id, client] : clients_)
        client.session->close();
    dropClosed(Clock::now());
    lines_.flushAll();
    database_.flushLines();
}

// Takes no more requests. Called again and again, because the end of a reading resumes its session. Answers
// may wait for the one to the next request, which is not taken any more.
void Server::pauseAll() {
    for (auto& [id, client] : clients_) {
        client.session->pause();
        flush(*client.session);
    }
}

void Server::flush(Session& session) {
    try {
        session.flush();
    } catch (const std::exception&) {
        session.close();
    }
}

// Whether some answer has begun but is not sent completely.
bool Server::isAnswering() const {
    return std::any_of(clients_.begin(), clients_.end(),
                       [this](const auto& entry) {
                           return entry.second.session->unsent() > 0 || readings_.isGivenOut(entry.first);
                       }) ||
           (shared_ && shared_->isCommitting());
}

void Server::addClient(Descriptor descriptor, const Peer& peer) {
    const ClientId id = nextId_++;
    auto session = std::make_unique<Session>(dispatcher_, lines_, std::move(descriptor), id, peer);
    places_.take(peer.user);
    try {
        clients_.emplace(id, Client{std::move(session), Clock::now() + options_.greeting});
    } catch (...) {
        places_.giveBack(peer.user);
        throw;
    }
}

void Server::round() {
    moreToDo_ = false;
    for (auto& [id, client] : clients_) {
        Session& session = *client.session;
        if (hasTurn(session))
            turn(session);
        moreToDo_ = moreToDo_ || hasTurn(session);
    }
}

bool Server::hasTurn(const Session& session) const {
    return session.hasRequest() || (session.takesAnswers() && readings_.canGoOn(session.id()));
}

// If there is not even memory for the answer, the client is closed.
void Server::turn(Session& session) {
    try {
        if (readings_.has(session.id()))
            serveReading(session);
        else
            serveRequest(session);
        if (!answersTogether(session))
            session.flush();
    } catch (const std::exception&) {
        session.close();
    }
}

// The requests of a transaction that came together are answered together: the client is woken once.
bool Server::answersTogether(const Session& session) const {
    return session.hasRequest() && queue_.owns(session.id());
}

void Server::serveRequest(Session& session) {
    const velta::protocol::Request request = session.takeRequest();
    send(session, request.sequence, answerTo(session, request));
}

// If memory runs out, the request that needed it fails.
Answer Server::answerTo(Session& session, const velta::protocol::Request& request) {
    try {
        return requests_.answer(session, request);
    } catch (const std::bad_alloc&) {
        return code::outOfMemory;
    }
}

void Server::serveReading(Session& session) {
    const std::uint32_t sequence = readings_.sequence(session.id());
    Answer answer = nextPiece(session.id());
    if (!answer.result.ok() || answer.reply.rows.last) {
        readings_.end(session.id());
        session.resume();
    }
    send(session, sequence, std::move(answer));
}

Answer Server::nextPiece(ClientId client) {
    try {
        return readings_.goOn(client);
    } catch (const std::bad_alloc&) {
        return code::outOfMemory;
    }
}

void Server::send(Session& session, std::uint32_t sequence, Answer&& answer) {
    if (answer.when == Answer::When::Later)
        return;
    velta::protocol::Reply& reply = answer.reply;
    reply.sequence = sequence;
    reply.rows.cells = answer.cells;
    if (!answer.result.ok()) {
        if (!answer.isLogged)
            logFailure(answer.result);
        reply.kind = velta::protocol::ReplyKind::Failed;
        reply.result = std::move(answer.result);
    }
    session.reply(reply);
    if (answer.when != Answer::When::ThenClose)
        return;
    session.flush();
    session.closeFor("did not greet with version", ' ' + std::to_string(velta::protocol::version));
}

// Logs a failure of the storage, unless the storage has logged it already.
void Server::logFailure(const Database::Result& result) {
    if (isOfStorage(result) && !database_.isInTrouble())
        lines_.error("storage " + std::to_string(result.code()),
                     "the database can't be used as it should: " + result.strerror());
}

// A client that can't be told because memory runs out is closed: after it reconnects it reads everything
// anew.
void Server::tellCommitted(const velta::NameList& tables, ClientId by) {
    if (shared_)
        shared_->changed(tables);
    for (auto& [id, client] : clients_) {
        Session& session = *client.session;
        try {
            if (!session.isClosed())
                session.tablesChanged(tables, id == by);
        } catch (const std::exception&) {
            session.close();
        }
    }
}

} // namespace store
