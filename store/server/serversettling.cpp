#include "store/log.h"
#include "store/server/server.h"

#include <algorithm>
#include <exception>
#include <utility>

// What the server does after each round.
namespace store {

namespace code = velta::protocol::code;

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
    careForSharing(now); // before a transaction begins
    admitNext(now);      // before endWaiting(): a client whose turn it is must not time out
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
        if (shared_)
            shared_->forget(session.id());
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
    if (shared_)
        shared_->ended(*owner);
    const Session& session = *clients_.at(*owner).session;
    lines_.warn("held a transaction", session.peer(),
                session.text() + " held a transaction for too long, it is rolled back");
}

// Notices of what was applied come before the answers of the commits that did it.
void Server::careForSharing(Clock::time_point now) {
    if (!shared_)
        return;
    shared_->settle(now);
    while (auto finished = shared_->takeFinished()) {
        logUnknown(finished->turn.client, finished->answer);
        answerLater(finished->turn, std::move(finished->answer));
    }
    moreToDo_ = moreToDo_ || shared_->hasMoreToApply();
}

// It is the cluster's, and no trouble of the storage.
void Server::logUnknown(ClientId client, Answer& answer) {
    if (answer.result.code() != code::outcomeUnknown)
        return;
    const Session& session = *clients_.at(client).session;
    lines_.warn("unknown outcome", session.peer(),
                session.text() + " changed what is shared, " + answer.result.strerror());
    answer.isLogged = true;
}

void Server::admitNext(Clock::time_point now) {
    const std::optional<TransactionQueue::Turn> turn = queue_.admit(now);
    if (!turn)
        return;
    const bool isInserting = shared_ && shared_->isInserting(turn->client);
    answerLater(*turn, isInserting ? shared_->goOn(turn->client) : Answer::done());
}

void Server::endWaiting(Clock::time_point now) {
    for (auto turn = queue_.takeTimedOut(now); turn; turn = queue_.takeTimedOut(now))
        answerLater(*turn, shared_ && shared_->isInserting(turn->client) ? shared_->giveUp(turn->client)
                                                                         : Answer(code::busy));
}

void Server::answerLater(const TransactionQueue::Turn& turn, Answer&& answer) {
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

unsigned Server::untilDeadline(unsigned milliseconds) const {
    Clock::time_point next = std::min({queue_.nextDeadline(), readings_.nextDeadline(), lines_.nextDeadline(),
                                       acceptor_.nextDeadline(), database_.nextDeadline()});
    if (shared_)
        next = std::min(next, shared_->nextDeadline());
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
