#pragma once

#include "store/storage/database.h"
#include "store/server/listeningsocket.h"
#include "store/server/requesthandler.h"
#include "store/server/session.h"
#include "store/server/transactionqueue.h"
#include "velta/net/eventdispatcher.h"

#include <chrono>
#include <map>
#include <memory>
#include <optional>

#include <sys/types.h>

namespace store {

struct ServerOptions {
    std::optional<gid_t> group; // whose members may come in, besides root and the server's user
    std::size_t clients = 128;  // at once
    std::chrono::milliseconds greeting = std::chrono::seconds(10); // for a new connection to greet
    std::chrono::milliseconds turn = std::chrono::seconds(60);     // at most, to wait for a transaction
    std::chrono::milliseconds transaction = std::chrono::seconds(60);
    std::size_t output = 64 * 1024 * 1024; // bytes; while more wait to be read, only small answers are given
    std::chrono::milliseconds reading = std::chrono::seconds(60); // for a client to take any of much output
};

// Serves a database to the clients of a socket, in one thread.
class Server {
public:
    Server(velta::net::EventDispatcher& dispatcher, Database& database, ListeningSocket& socket,
           const ServerOptions& options);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // Waits for events, not longer than that, and serves them.
    void handleEvents(unsigned milliseconds);
    // Rolls back what is open, sends the answers that are made, and closes all connections. Takes that long
    // at most.
    void shutDown(std::chrono::milliseconds patience);

private:
    struct Client {
        std::unique_ptr<Session> session;
        Clock::time_point greetUntil;
    };

    void accept();
    void admitClient(int descriptor);
    void addClient(int descriptor, const Peer& peer);
    void pauseAccepting(const char* reason);
    void resumeAccepting(Clock::time_point now);
    // Acts on what a round of events and the time gone by left to do, until nothing is.
    void settle();
    bool dropClosed();
    bool expireTransaction(Clock::time_point now);
    bool endWaiting(Clock::time_point now);
    bool admitNext(Clock::time_point now);
    void closeSilent(Clock::time_point now);
    Clock::time_point patienceEnd(const Client& client) const;
    void tellCommitted(const velta::NameList& tables, ClientId by);
    unsigned untilDeadline(unsigned milliseconds) const;
    std::size_t unsent() const;

    velta::net::EventDispatcher& dispatcher_;
    ListeningSocket& socket_;
    const ServerOptions options_;
    TransactionQueue queue_;
    RequestHandler handler_;
    std::map<ClientId, Client> clients_;
    ClientId nextId_ = 1;
    std::optional<Clock::time_point> acceptAgain_; // while accepting is paused
};

} // namespace store
