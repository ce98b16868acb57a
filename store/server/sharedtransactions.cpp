#include "store/server/sharedtransactions.h"

#include "store/server/writes.h"

#include <new>
#include <utility>

namespace store {

namespace code = velta::protocol::code;
using Result = SharedTransactions::Result;

SharedTransactions::SharedTransactions(Sharing& sharing, Database& database, TransactionQueue& queue,
                                       Clock::duration turn, Applied applied)
    : sharing_(sharing),
      database_(database),
      queue_(queue),
      turn_(turn),
      applied_(std::move(applied)),
      commits_(sharing),
      inserts_(sharing) {}

bool SharedTransactions::needsId(const Request& request) const {
    if (request.kind != velta::protocol::RequestKind::Insert || request.values.hasValue(idColumn))
        return false;
    const std::optional<std::size_t> table = indexOf(database_.schema(), request.table);
    return table && database_.schema().tables()[*table].isShared();
}

Answer SharedTransactions::insert(ClientId owner, const Request& request) {
    if (Result result = database_.transaction().mayInsert(request.table, request.values); !result.ok())
        return result; // as ever: the transaction goes on
    TransactionWork work = takeWork(owner);
    passOn();
    Result result(code::tooLarge,
                  "a transaction that inserts into a shared table holds at most 1 MiB of writes");
    if (!work.tooManyWrites())
        result = inserts_.begin(owner, request, *indexOf(database_.schema(), request.table), work);
    return result.ok() ? Answer(Answer::When::Later) : fail(owner, work, result);
}

std::optional<Answer> SharedTransactions::commit(const TransactionQueue::Turn& owner) {
    const TransactionWork work = takeWork(owner.client);
    SharedChange change;
    Result result;
    try {
        result = database_.transaction().sharedChange(work.reads(), change);
    } catch (const std::bad_alloc&) {
        result = code::outOfMemory;
    }
    if (!result.ok() || change.rows.empty())
        giveBack(sharing_, work.reserved());
    if (result.ok() && change.rows.empty())
        return std::nullopt;
    passOn();
    if (result.ok())
        result = commits_.begin(owner, std::move(change), work.reserved());
    return result.ok() ? Answer(Answer::When::Later) : Answer(result);
}

void SharedTransactions::ended(ClientId client) {
    giveBack(sharing_, takeWork(client).reserved());
}

void SharedTransactions::forget(ClientId client) {
    ended(client);
    commits_.forget(client);
    inserts_.forget(client);
    failures_.erase(client);
}

Result SharedTransactions::takeFailure(ClientId client) {
    const auto found = failures_.find(client);
    if (found == failures_.end())
        return {};
    const Result failure = std::move(found->second);
    failures_.erase(found);
    return failure;
}

void SharedTransactions::applyUpdates(Clock::time_point now) {
    if (queue_.isFree() && sharing_.hasUpdates())
        if (const velta::NameList tables = sharing_.apply(); !tables.empty())
            applied_(tables);
    queue_.updatesWait(sharing_.hasUpdates(), now);
}

void SharedTransactions::settle(Clock::time_point now) {
    sharing_.settle(now);
    applyUpdates(now);
    inserts_.enqueue(queue_, now + turn_, now);
}

std::optional<SharedTransactions::Finished> SharedTransactions::takeFinished() {
    if (const auto commit = commits_.takeFinished())
        return Finished{commit->turn, commit->result.ok() ? Answer::done() : Answer(commit->result)};
    if (const auto failed = inserts_.takeFailed())
        return Finished{{failed->client, failed->insert.insert.sequence},
                        fail(failed->client, failed->insert.work, *failed->insert.end)};
    return std::nullopt;
}

Answer SharedTransactions::goOn(ClientId owner) {
    const SuspendedInserts::Suspended suspended = inserts_.take(owner);
    TransactionWork work = suspended.work;
    if (Result result = redo(suspended, work); !result.ok()) {
        passOn();
        return fail(owner, work, result);
    }
    works_[owner] = std::move(work);
    return Answer::done(suspended.id);
}

Answer SharedTransactions::giveUp(ClientId client) {
    queue_.withdraw(client);
    return fail(client, inserts_.take(client).work, code::busy);
}

Result SharedTransactions::redo(const SuspendedInserts::Suspended& suspended, TransactionWork& work) {
    if (suspended.isOutdated)
        return {code::conflict, "a table that the transaction uses was changed while it waited for an Id"};
    try {
        return redoWrites(suspended, work);
    } catch (const std::bad_alloc&) {
        return code::outOfMemory;
    }
}

Result SharedTransactions::redoWrites(const SuspendedInserts::Suspended& suspended, TransactionWork& work) {
    std::uint32_t number = 0;
    for (const Request& write : suspended.work.writes())
        if (Result result = carryOut(database_.transaction(), write, number); !result.ok())
            return result;
    Request insert = suspended.insert;
    velta::Value id(velta::Value::Integer);
    id.setInteger(static_cast<int>(suspended.id));
    insert.values.add(idColumn, id);
    const Result result = carryOut(database_.transaction(), insert, number);
    if (result.ok())
        work.keep(insert, number);
    return result;
}

TransactionWork SharedTransactions::takeWork(ClientId client) {
    const auto found = works_.find(client);
    if (found == works_.end())
        return {};
    TransactionWork work = std::move(found->second);
    works_.erase(found);
    return work;
}

void SharedTransactions::passOn() {
    database_.transaction().rollBack();
    queue_.release(Clock::now());
}

// So that the client does not believe that a part of its transaction was kept, its next request of it hears
// of the failure as well.
Answer SharedTransactions::fail(ClientId client, const TransactionWork& work, const Result& failure) {
    giveBack(sharing_, work.reserved());
    failures_[client] = failure;
    return failure;
}

} // namespace store
