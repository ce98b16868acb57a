#include "store/server/requests.h"

#include "store/log.h"
#include "store/server/writes.h"
#include "store/storage/cells.h"

#include <algorithm>
#include <new>
#include <set>
#include <utility>

namespace store {

using velta::protocol::Reply;
using velta::protocol::ReplyKind;
using velta::protocol::RequestKind;
using Result = Database::Result;
namespace code = velta::protocol::code;

namespace {

constexpr std::uint32_t leaveOutOwn = 1; // in the number of Subscribe

Reply replyOf(ReplyKind kind) {
    Reply reply;
    reply.kind = kind;
    return reply;
}

} // namespace

Requests::Requests(Database& database, TransactionQueue& queue, Readings& readings,
                   SharedTransactions* shared, Clock::duration longestTurn, Committed committed)
    : database_(database),
      queue_(queue),
      readings_(readings),
      shared_(shared),
      longestTurn_(longestTurn),
      committed_(std::move(committed)) {}

Answer Requests::answer(Session& session, const Request& request) {
    if (!session.hasGreeted())
        return greet(session, request);
    if (queue_.takeExpiry(session.id()))
        return code::transactionExpired;
    if (queue_.owns(session.id())) {
        queue_.heard(Clock::now());
        if (shared_ != nullptr)
            shared_->note(session.id(), request);
    }
    switch (request.kind) {
    case RequestKind::Hello:
        return Result(code::badMessage, "a second greeting");
    case RequestKind::Tables:
        return listTables();
    case RequestKind::Columns:
        return listColumns(request);
    case RequestKind::Describe:
        return describeTable(request);
    case RequestKind::SharedColumns:
        return listSharedColumns(request);
    case RequestKind::ReadTable:
    case RequestKind::ReadRow:
    case RequestKind::ReadKey:
        return read(session, request);
    case RequestKind::Subscribe:
        return subscribe(session, request);
    case RequestKind::Begin:
        return begin(session, request);
    case RequestKind::Commit:
        return commit(session, request);
    case RequestKind::Abort:
        return abort(session);
    case RequestKind::WriteSingle:
    case RequestKind::Update:
    case RequestKind::Insert:
    case RequestKind::Remove:
        return write(session, request);
    }
    return code::badMessage;
}

Answer Requests::greet(Session& session, const Request& request) {
    if (request.kind != RequestKind::Hello || request.number != velta::protocol::version) {
        Answer refusal(Answer::When::ThenClose);
        refusal.result = {code::wrongVersion, "the store speaks " + std::to_string(velta::protocol::version)};
        return refusal;
    }
    queue_.join(session.id(), Clock::now());
    session.setGreeted(request.key);
    log::debug(session.text() + " is here");
    return Answer::done(velta::protocol::version);
}

Answer Requests::listTables() const {
    Reply reply = replyOf(ReplyKind::Tables);
    for (const Table& table : database_.schema().tables())
        reply.tables.push_back({table.name, table.singleRow()});
    return reply;
}

Answer Requests::listColumns(const Request& request) {
    const Table* table = database_.table(request.table);
    if (table == nullptr)
        return Result(code::unknownTable, shown(request.table));
    Reply reply = replyOf(ReplyKind::Columns);
    for (const Column& column : table->columns)
        reply.columns.push_back({column.name, column.type});
    return reply;
}

Answer Requests::describeTable(const Request& request) {
    const Table* table = database_.table(request.table);
    if (table == nullptr)
        return Result(code::unknownTable, shown(request.table));
    Reply reply = replyOf(ReplyKind::Description);
    reply.descriptions = describe(*table);
    return reply;
}

Answer Requests::listSharedColumns(const Request& request) {
    const Table* table = database_.table(request.table);
    if (table == nullptr)
        return Result(code::unknownTable, shown(request.table));
    Reply reply = replyOf(ReplyKind::Columns);
    for (const Column& column : table->columns)
        if (column.shared)
            reply.columns.push_back({column.name, column.type});
    return reply;
}

Answer Requests::read(Session& session, const Request& request) {
    const auto view =
        queue_.owns(session.id()) ? Database::View::OpenTransaction : Database::View::LastCommit;
    if (request.kind == RequestKind::ReadTable)
        return readings_.begin(session, request.sequence, request.table, view);
    TableReader& reader = database_.reader(view);
    Rows rows;
    const Result result = request.kind == RequestKind::ReadRow
                              ? reader.readRow(request.table, request.number, rows)
                              : reader.readKey(request.table, request.keyColumn, request.key, rows);
    if (!result.ok())
        return result;
    return Answer::piece(std::move(rows), 1, true);
}

Answer Requests::subscribe(Session& session, const Request& request) {
    std::set<std::string> tables;
    for (const std::string& name : request.names)
        if (database_.table(name) != nullptr) // a table that the schema lacks never changes
            tables.insert(name);
    session.subscribe(std::move(tables), (request.number & leaveOutOwn) != 0);
    return Answer::done();
}

// The request waits in the queue until it is the client's turn or its time is up.
Answer Requests::begin(Session& session, const Request& request) {
    if (queue_.owns(session.id()))
        return code::transactionOpen;
    const Clock::time_point now = Clock::now();
    const Clock::duration turn =
        std::min<Clock::duration>(std::chrono::milliseconds(request.number), longestTurn_);
    if (shared_ != nullptr) {
        (void)shared_->takeFailure(session.id()); // it was told of it before, and begins anew
        shared_->applyUpdates(now);
    }
    session.putNotice(); // the client learns of all earlier commits before its transaction begins
    queue_.ask(session.id(), request.sequence, now + turn, now);
    if (queue_.admitIfNext(session.id(), now))
        return Answer::done();
    if (request.number == 0) { // now or never
        queue_.withdraw(session.id());
        return code::busy;
    }
    session.pause();
    return Answer(Answer::When::Later);
}

Answer Requests::commit(Session& session, const Request& request) {
    if (!queue_.owns(session.id()))
        return failureOf(session);
    std::optional<Answer> answer;
    if (shared_ != nullptr)
        answer = shared_->commit({session.id(), request.sequence});
    if (!answer)
        return commitHere(session);
    if (answer->when == Answer::When::Later)
        session.pause();
    return std::move(*answer);
}

Answer Requests::commitHere(Session& session) {
    velta::NameList changed;
    const Result result = commitTransaction(changed);
    queue_.release(Clock::now());
    if (!changed.empty())
        committed_(changed, session.id());
    return result.ok() ? Answer::done() : Answer(result);
}

// Why the client has no transaction.
Result Requests::failureOf(const Session& session) {
    const Result failure = shared_ != nullptr ? shared_->takeFailure(session.id()) : Result();
    return failure.ok() ? Result(code::noTransaction) : failure;
}

// The transaction is over even if memory runs out.
Result Requests::commitTransaction(velta::NameList& changed) {
    try {
        return database_.transaction().commit(changed);
    } catch (const std::bad_alloc&) {
        database_.transaction().rollBack();
        return code::outOfMemory;
    }
}

// A transaction that is over already, and of which the client was told so, may be aborted too.
Answer Requests::abort(Session& session) {
    if (!queue_.owns(session.id()))
        return failureOf(session).code() == code::noTransaction ? Answer(code::noTransaction)
                                                                : Answer::done();
    database_.transaction().rollBack();
    queue_.release(Clock::now());
    if (shared_ != nullptr)
        shared_->ended(session.id());
    return Answer::done();
}

Answer Requests::write(Session& session, const Request& request) {
    if (!queue_.owns(session.id()))
        return failureOf(session);
    if (shared_ != nullptr && shared_->needsId(request))
        return insertShared(session, request);
    std::uint32_t number = 0;
    const Result result = carryOut(database_.transaction(), request, number);
    if (result.ok() && shared_ != nullptr)
        shared_->keep(session.id(), request, number);
    return result.ok() ? Answer::done(number) : Answer(result);
}

Answer Requests::insertShared(Session& session, const Request& request) {
    Answer answer = shared_->insert(session.id(), request);
    if (answer.when == Answer::When::Later)
        session.pause();
    return answer;
}

} // namespace store
