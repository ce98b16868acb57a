#pragma once

#include "store/storage/database.h"
#include "store/server/session.h"
#include "store/server/transactionqueue.h"

#include <functional>
#include <map>
#include <set>
#include <string>

namespace store {

// Answers the requests of all clients. What a Begin that has to wait comes to is answered later, by grant()
// or busy().
class RequestHandler {
public:
    // Called with the tables that a commit changed and the client that committed, before that one is
    // answered.
    using Committed = std::function<void(const velta::NameList& tables, ClientId by)>;

    // Whether so much output waits to be read that only small answers are given.
    using Crowded = std::function<bool()>;

    // No client waits longer for its turn than `longestTurn`.
    RequestHandler(Database& database, TransactionQueue& queue, Clock::duration longestTurn,
                   Committed committed, Crowded crowded);

    void handle(Session& session, const velta::protocol::Request& request);

    // It is this waiting client's turn; its time in the queue is up.
    void grant(Session& session);
    void busy(Session& session);
    // The client's transaction was held for too long and is rolled back; its next operation hears of it.
    void expire(ClientId client);
    // The client is gone.
    void forget(ClientId client);
    void rollBack() { database_.rollBack(); }

private:
    using Request = velta::protocol::Request;

    // Answers that it failed. A failure of the storage is logged too, one that lasts only once.
    void fail(Session& session, const Request& request, const Database::Result& result);
    void greet(Session& session, const Request& request);
    void answer(Session& session, const Request& request);
    void listTables(Session& session, const Request& request);
    void listColumns(Session& session, const Request& request);
    void read(Session& session, const Request& request);
    void subscribe(Session& session, const Request& request);
    void begin(Session& session, const Request& request);
    void commit(Session& session, const Request& request);
    void abort(Session& session, const Request& request);
    void write(Session& session, const Request& request);
    Database::Result readInto(Rows& rows, const Request& request, Database::View view);
    Database::Result writeFrom(const Request& request, std::uint32_t& number);

    Database& database_;
    TransactionQueue& queue_;
    const Clock::duration longestTurn_;
    const Committed committed_;
    const Crowded crowded_;
    std::string loggedFailure_;                 // of the storage, the last one
    std::map<ClientId, std::uint32_t> waiting_; // the sequence numbers of Begins that wait
    std::set<ClientId> expired_;                // clients that have not heard of it yet
};

} // namespace store
