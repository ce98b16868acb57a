#pragma once

#include "store/server/acceptor.h"
#include "store/server/clientlines.h"
#include "store/server/databasewatch.h"
#include "store/server/listeningsocket.h"
#include "store/server/places.h"
#include "store/server/readings.h"
#include "store/server/requests.h"
#include "store/server/session.h"
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
    std::optional<gid_t> group; // whose members may come in, besides root and the server's user
    Places::Limits places;
    std::chrono::milliseconds greeting = std::chrono::seconds(10); // for a new connection to greet
    std::chrono::milliseconds turn = std::chrono::seconds(60);     // at most, to wait for a transaction
    TransactionQueue::Limits transaction;
    Readings::Limits readings;
    std::chrono::milliseconds reading = std::chrono::seconds(60); // for a client to take any of much output
};

// Serves a database to the clients of a socket, in one thread and in rounds: in each round every client that
// has something to be done has one turn, a request or a piece of a reading.
class Server {
public:
    Server(velta::net::EventDispatcher& dispatcher, Database& database, ListeningSocket& socket,
           const ServerOptions& options);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // Waits for events, not longer than that, and does one round.
    void handleEvents(unsigned milliseconds);
    // Rolls back what is open, sends the answers that are begun, and closes all connections. Takes that long
    // at most.
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
    void serveRequest(Session& session);
    Answer answerTo(Session& session, const velta::protocol::Request& request);
    void serveReading(Session& session);
    Answer nextPiece(ClientId client);
    void send(Session& session, std::uint32_t sequence, Answer&& answer);
    void logFailure(const Database::Result& result);

    // Acts on what a round and the time gone by left to do.
    void settle();
    void careForDatabase();
    void dropClosed(Clock::time_point now);
    void expireTransaction(Clock::time_point now);
    void admitNext(Clock::time_point now);
    void endWaiting(Clock::time_point now);
    void answerBegin(const TransactionQueue::Turn& turn, Answer&& answer);
    void closeSilent(Clock::time_point now);
    Clock::time_point patienceEnd(const Client& client) const;
    void tellCommitted(const velta::NameList& tables, ClientId by);
    unsigned untilDeadline(unsigned milliseconds) const;
    bool isAnswering() const;
    void pauseAll();

    velta::net::EventDispatcher& dispatcher_;
    Database& database_;
    const ServerOptions options_;
    DatabaseWatch databaseWatch_;
    ClientLines lines_;
    Places places_;
    TransactionQueue queue_;
    Readings readings_;
    Requests requests_;
    std::map<ClientId, Client> clients_;
    ClientId nextId_ = 1;
    bool moreToDo_ = false; // somebody has a turn in the next round
    Acceptor acceptor_;
};

} // namespace store
