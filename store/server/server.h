#pragma once

#include "store/server/acceptor.h"
#include "store/server/clientlines.h"
#include "store/server/databasewatch.h"
#include "store/server/listeningsocket.h"
#include "store/server/places.h"
#include "store/server/readings.h"
#include "store/server/requests.h"
#include "store/server/session.h"
#include "store/server/sharedtransactions.h"
#include "store/server/transactionqueue.h"
#include "store/storage/database.h"
#include "velta/net/eventdispatcher.h"

#include <chrono>
#include <map>
#include <memory>
#include <optional>

#include <sys/types.h>

namespace store {

struct ServerOptions {
    std::optional<gid_t> group; // whose members may connect, besides root and the server's user
    Places::Limits places;
    // How long a new connection may take to greet.
    std::chrono::milliseconds greeting = std::chrono::seconds(10);
    // How long a client may wait for the transaction.
    std::chrono::milliseconds turn = std::chrono::seconds(60);
    TransactionQueue::Limits transaction;
    Readings::Limits readings;
    // How long an insertion that got its Id from other devices may wait for another turn.
    std::chrono::milliseconds turnAgain = std::chrono::seconds(10);
    // How long a client may take no byte of much output.
    std::chrono::milliseconds reading = std::chrono::seconds(60);
};

// Serves a database to the clients of a socket, in one thread and in rounds. In each round every client that
// has something to do gets one turn: one request, or one piece of a reading.
class Server {
public:
    // Without `sharing` no table is shared with other devices. All outlive the server.
    Server(velta::net::EventDispatcher& dispatcher, Database& database, ListeningSocket& socket,
           const ServerOptions& options, Sharing* sharing = nullptr);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // Waits for events, at most that long, and does one round.
    void handleEvents(unsigned milliseconds);
    // Finishes the answers that have begun, closes all connections and rolls back the open transaction. Takes
    // at most `patience`.
    void shutDown(std::chrono::milliseconds patience);

private:
    struct Client {
        std::unique_ptr<Session> session;
        Clock::time_point greetUntil;
    };

    void addClient(Descriptor descriptor, const Peer& peer);

    void round();
    bool hasTurn(const Session& session) const;
    void turn(Session& session);
    bool answersTogether(const Session& session) const;
    void serveRequest(Session& session);
    Answer answerTo(Session& session, const velta::protocol::Request& request);
    void serveReading(Session& session);
    Answer nextPiece(ClientId client);
    void send(Session& session, std::uint32_t sequence, Answer&& answer);
    void logFailure(const Database::Result& result);

    // Does what is due after a round: what the round left to do, and what has timed out.
    void settle();
    void careForDatabase();
    void dropClosed(Clock::time_point now);
    void expireTransaction(Clock::time_point now);
    void careForSharing(Clock::time_point now);
    void logUnknown(ClientId client, Answer& answer);
    void admitNext(Clock::time_point now);
    void endWaiting(Clock::time_point now);
    void answerLater(const TransactionQueue::Turn& turn, Answer&& answer);
    void closeSilent(Clock::time_point now);
    Clock::time_point patienceEnd(const Client& client) const;
    void tellCommitted(const velta::NameList& tables, ClientId by);
    unsigned untilDeadline(unsigned milliseconds) const;
    bool isAnswering() const;
    void pauseAll();
    static void flush(Session& session);

    velta::net::EventDispatcher& dispatcher_;
    Database& database_;
    const ServerOptions options_;
    DatabaseWatch databaseWatch_;
    ClientLines lines_;
    Places places_;
    TransactionQueue queue_;
    Readings readings_;
    const std::unique_ptr<SharedTransactions> shared_; // null where no table is shared
    Requests requests_;
    std::map<ClientId, Client> clients_;
    ClientId nextId_ = 1;
    bool moreToDo_ = false; // somebody has a turn in the next round
    Acceptor acceptor_;
};

} // namespace store
