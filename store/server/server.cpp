#include "store/server/server.h"

#include "store/log.h"

#include <algorithm>
#include <exception>
#include <new>
#include <utility>

namespace store {

namespace code = velta::protocol::code;

namespace {

constexpr ClientId nobody = 0;

bool isOfStorage(const Database::Result& result) {
    return result.code() == code::storageFailed || result.code() == code::storageFull ||
           result.code() == code::readOnly || result.code() == code::outcomeUnknown;
}

} // namespace

Server::Server(velta::net::EventDispatcher& dispatcher, Database& database, ListeningSocket& socket,
               const ServerOptions& options)
    : dispatcher_(dispatcher),
      database_(database),
      options_(options),
      databaseWatch_(dispatcher, database),
      places_(options.places),
      queue_(options.transaction),
      readings_(database, options.readings),
      requests_(database, queue_, readings_, options.turn,
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
        pauseAll();
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - now).count() + 1;
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
    return std::any_of(clients_.begin(), clients_.end(), [this](const auto& entry) {
        return entry.second.session->unsent() > 0 || readings_.isGivenOut(entry.first);
    });
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

void Server::settle() {
    const Clock::time_point now = Clock::now();
    acceptor_.resume(now);
    closeSilent(now);
    lines_.flush(now);
    readings_.expire(now);
    dropClosed(now);
    careForDatabase(); // before a new reading: the write-ahead log can restart while no snapshot holds it
                       // back
    expireTransaction(now);
    admitNext(now); // before endWaiting(): a client whose turn it is must not time out
    endWaiting(now);
    if (readings_.admit(now))
        moreToDo_ = true;
}

// Called after the answers were sent, so that no client waits for it.
void Server::careForDatabase() {
    database_.tidy();
    databaseWatch_.followFiles();
    if (const velta::NameList changed = database_.takeChanged(); !changed.empty())
        tellCommitted(changed, nobody);
}

void Server::dropClosed(Clock::time_point now) {
    for (auto client = clients_.begin(); client != clients_.end();) {
        const Session& session = *client->second.session;
        if (!session.isClosed()) {
            ++client;
            continue;
        }
        readings_.forget(session.id());
        if (queue_.owns(session.id()))
            database_.transaction().rollBack();
        queue_.forget(session.id(), now);
        places_.giveBack(session.peer().user);
        const std::unique_ptr<Session> gone = std::move(client->second.session);
        client = clients_.erase(client);
        log::debug(gone->text() + " is gone");
    }
}

void Server::expireTransaction(Clock::time_point now) {
    const std::optional<ClientId> owner = queue_.takeExpired(now);
    if (!owner)
        return;
    if (readings_.has(*owner) && queue_.takeExpiry(*owner))
        readings_.fail(*owner, code::transactionExpired); // it reads the transaction's rows; needs no memory
    database_.transaction().rollBack();
    const Session& session = *clients_.at(*owner).session;
    lines_.warn("held a transaction", session.peer(),
                session.text() + " held a transaction for too long, it is rolled back");
}

void Server::admitNext(Clock::time_point now) {
    const std::optional<TransactionQueue::Turn> turn = queue_.admit(now);
    if (!turn)
        return;
    answerBegin(*turn, Answer::done());
}

void Server::endWaiting(Clock::time_point now) {
    for (auto turn = queue_.takeTimedOut(now); turn; turn = queue_.takeTimedOut(now))
        answerBegin(*turn, code::busy);
}

void Server::answerBegin(const TransactionQueue::Turn& turn, Answer&& answer) {
    Session& session = *clients_.at(turn.client).session;
    try {
        session.putNotice(); // the client learns of all earlier commits before its transaction begins
        send(session, turn.sequence, std::move(answer));
        session.resume();
        session.flush();
    } catch (const std::exception&) {
        session.close();
    }
    moreToDo_ = true; // its next request may be here already
}

void Server::closeSilent(Clock::time_point now) {
    for (auto& [id, client] : clients_) {
        Session& session = *client.session;
        if (!session.isClosed() && now >= patienceEnd(client))
            session.closeFor(session.hasGreeted() ? "does not read its answers" : "did not greet in time");
    }
}

// When the client is to be closed because it does not greet or does not read.
Clock::time_point Server::patienceEnd(const Client& client) const {
    if (!client.session->hasGreeted())
        return client.greetUntil;
    const std::optional<Clock::time_point> stalled = client.session->stalledSince();
    return stalled ? *stalled + options_.reading : Clock::time_point::max();
}

// A client that can't be told because memory runs out is closed: after it reconnects it reads everything
// anew.
void Server::tellCommitted(const velta::NameList& tables, ClientId by) {
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

unsigned Server::untilDeadline(unsigned milliseconds) const {
    Clock::time_point next = std::min({queue_.nextDeadline(), readings_.nextDeadline(), lines_.nextDeadline(),
                                       acceptor_.nextDeadline(), database_.nextDeadline()});
    for (const auto& [id, client] : clients_)
        next = std::min(next, patienceEnd(client));
    if (next == Clock::time_point::max())
        return milliseconds;
    const Clock::time_point now = Clock::now();
    if (next <= now)
        return 0;
    // Rounded up: a moment too early there would be nothing to do.
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(next - now).count() + 1;
    return static_cast<unsigned>(std::min<std::chrono::milliseconds::rep>(left, milliseconds));
}

} // namespace store
