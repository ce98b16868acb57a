#pragma once

#include "store/server/answer.h"
#include "store/server/readings.h"
#include "store/server/session.h"
#include "store/server/sharedtransactions.h"
#include "store/server/transactionqueue.h"
#include "store/storage/database.h"

#include <functional>

namespace store {

// Carries out the requests of all clients.
class Requests {
public:
    // Called with the tables that a commit changed and the client that committed, before that client is
    // answered.
    using Committed = std::function<void(const velta::NameList& tables, ClientId by)>;

    // No client waits longer for its turn than `longestTurn`. `shared` is null where tables are not shared.
    Requests(Database& database, TransactionQueue& queue, Readings& readings, SharedTransactions* shared,
             Clock::duration longestTurn, Committed committed);

    Answer answer(Session& session, const velta::protocol::Request& request);

private:
    using Request = velta::protocol::Request;

    Answer greet(Session& session, const Request& request);
    Answer listTables() const;
    Answer listColumns(const Request& request);
    Answer describeTable(const Request& request);
    Answer listSharedColumns(const Request& request);
    Answer read(Session& session, const Request& request);
    Answer subscribe(Session& session, const Request& request);
    Answer begin(Session& session, const Request& request);
    Answer commit(Session& session, const Request& request);
    Answer commitHere(Session& session);
    Database::Result commitTransaction(velta::NameList& changed);
    Answer abort(Session& session);
    Answer write(Session& session, const Request& request);
    Answer insertShared(Session& session, const Request& request);
    Database::Result failureOf(const Session& session);

    Database& database_;
    TransactionQueue& queue_;
    Readings& readings_;
    SharedTransactions* const shared_;
    const Clock::duration longestTurn_;
    const Committed committed_;
};

} // namespace store
