#pragma once

#include "store/server/answer.h"
#include "store/server/sharedcommits.h"
#include "store/server/suspendedinserts.h"
#include "store/server/transactionqueue.h"
#include "store/server/transactionwork.h"
#include "store/storage/database.h"
#include "store/storage/sharing.h"
#include "velta/namelist.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>

namespace store {

// What becomes of transactions where tables are shared with other devices. A commit of shared cells is given
// to them, and an insertion into a shared table asks them for its Id. Until they have answered, the
// transaction is rolled back and others have their turns: nothing waits for the devices but the client.
class SharedTransactions {
public:
    using Request = velta::protocol::Request;
    using Result = velta::protocol::EResultCode;
    // Called with the tables that other devices' changes, or those of a client here, have changed.
    using Applied = std::function<void(const velta::NameList& tables)>;

    // An answer to a request that had to wait.
    struct Finished {
        TransactionQueue::Turn turn;
        Answer answer;
    };

    // All outlive it. `turn` is how long an insertion that has its Id waits for another turn.
    SharedTransactions(Sharing& sharing, Database& database, TransactionQueue& queue, Clock::duration turn,
                       Applied applied);

    // The owner's request is about to be carried out; a write of it was.
    void note(ClientId owner, const Request& request) { works_[owner].note(database_.schema(), request); }
    void keep(ClientId owner, const Request& request, std::uint32_t number) {
        works_[owner].keep(request, number);
    }
    // Whether it inserts a row for which the devices choose the Id.
    bool needsId(const Request& request) const;
    // Such an insertion by the owner. With When::Later the client has to wait, and is no owner any more.
    Answer insert(ClientId owner, const Request& request);
    // None: the transaction changes nothing that is shared, and is to be committed here. Else it is over.
    // With When::Later the client has to wait.
    std::optional<Answer> commit(const TransactionQueue::Turn& owner);
    // The client's transaction is over in another way.
    void ended(ClientId client);
    // The client is gone.
    void forget(ClientId client);
    // Why the client's transaction is over although the client did not end it; once.
    Result takeFailure(ClientId client);

    // Applies what came from other devices, unless a transaction is open. To be called before one begins.
    void applyUpdates(Clock::time_point now);
    // Whether it could go on at once: it stops after a while, so that clients have their turns.
    bool hasMoreToApply() const { return queue_.isFree() && sharing_.hasUpdates(); }
    // A commit has changed these tables.
    void changed(const velta::NameList& tables) { inserts_.changed(tables); }
    void settle(Clock::time_point now);
    std::optional<Finished> takeFinished();
    Clock::time_point nextDeadline() const { return sharing_.nextDeadline(); }

    // Whether the client waits in the queue for its insertion.
    bool isInserting(ClientId client) const { return inserts_.has(client); }
    // It is its turn: makes the transaction again, with the insertion. The answer may be a failure, and the
    // client is no owner then.
    Answer goOn(ClientId owner);
    // The turn did not come in time.
    Answer giveUp(ClientId client);
    // Whether clients wait for commits.
    bool isCommitting() const { return commits_.isAwaited(); }

private:
    TransactionWork takeWork(ClientId client);
    // Rolls the owner's transaction back and lets others have their turns.
    void passOn();
    Result redo(const SuspendedInserts::Suspended& suspended, TransactionWork& work);
    Result redoWrites(const SuspendedInserts::Suspended& suspended, TransactionWork& work);
    Answer fail(ClientId client, const TransactionWork& work, const Result& failure);

    Sharing& sharing_;
    Database& database_;
    TransactionQueue& queue_;
    const Clock::duration turn_;
    const Applied applied_;
    std::map<ClientId, TransactionWork> works_; // of the owner
    std::map<ClientId, Result> failures_;       // that their clients were not told at each of their requests
    SharedCommits commits_;
    SuspendedInserts inserts_;
};

} // namespace store
