#include "store/server/requesthandler.h"

#include "store/storage/cells.h"
#include "store/log.h"

#include <algorithm>
#include <utility>

namespace store {

using velta::protocol::Reply;
using velta::protocol::ReplyKind;
using velta::protocol::RequestKind;
using Result = Database::Result;
namespace code = velta::protocol::code;

namespace {

constexpr std::uint32_t leaveOutOwn = 1;       // in the number of Subscribe
constexpr std::size_t smallAnswer = 64 * 1024; // bytes of cells

bool isOfStorage(const Result& result) {
    return result.code() == code::storageFailed || result.code() == code::storageFull ||
           result.code() == code::readOnly;
}

Reply replyTo(const velta::protocol::Request& request, ReplyKind kind) {
    Reply reply;
    reply.kind = kind;
    reply.sequence = request.sequence;
    return reply;
}

void answerRows(Session& session, const velta::protocol::Request& request, Rows& rows) {
    Reply reply = replyTo(request, ReplyKind::Rows);
    reply.rows.columns = std::move(rows.columns);
    reply.rows.totalRows = rows.total;
    for (Rows::Piece& piece : rows.pieces) {
        reply.rows.last = &piece == &rows.pieces.back();
        reply.rows.rows = piece.rows;
        reply.rows.cells = piece.cells;
        session.reply(reply);
        std::string().swap(piece.cells); // a large table need not be held twice
    }
}

} // namespace

RequestHandler::RequestHandler(Database& database, TransactionQueue& queue, Clock::duration longestTurn,
                               Committed committed, Crowded crowded)
    : database_(database),
      queue_(queue),
      longestTurn_(longestTurn),
      committed_(std::move(committed)),
      crowded_(std::move(crowded)) {}

void RequestHandler::handle(Session& session, const Request& request) {
    if (!session.hasGreeted())
        greet(session, request);
    else if (expired_.erase(session.id()) != 0)
        session.failed(request.sequence, code::transactionExpired);
    else
        answer(session, request);
}

void RequestHandler::fail(Session& session, const Request& request, const Result& result) {
    session.failed(request.sequence, result);
    if (!isOfStorage(result) || result.strerror() == loggedFailure_)
        return;
    loggedFailure_ = result.strerror();
    log::error("the database can't be used as it should: " + loggedFailure_);
}

void RequestHandler::greet(Session& session, const Request& request) {
    if (request.kind != RequestKind::Hello || request.number != velta::protocol::version) {
        log::warning(session.text() + " did not greet with version " +
                     std::to_string(velta::protocol::version) + ", connection closed");
        session.failed(request.sequence,
                       {code::wrongVersion, "the store speaks " + std::to_string(velta::protocol::version)});
        session.flush();
        session.close();
        return;
    }
    session.setGreeted(request.key);
    log::debug(session.text() + " is here");
    session.done(request.sequence, velta::protocol::version);
}

void RequestHandler::answer(Session& session, const Request& request) {
    switch (request.kind) {
    case RequestKind::Hello:
        session.failed(request.sequence, {code::badMessage, "a second greeting"});
        break;
    case RequestKind::Tables:
        listTables(session, request);
        break;
    case RequestKind::Columns:
        listColumns(session, request);
        break;
    case RequestKind::ReadTable:
    case RequestKind::ReadRow:
    case RequestKind::ReadKey:
        read(session, request);
        break;
    case RequestKind::Subscribe:
        subscribe(session, request);
        break;
    case RequestKind::Begin:
        begin(session, request);
        break;
    case RequestKind::Commit:
        commit(session, request);
        break;
    case RequestKind::Abort:
        abort(session, request);
        break;
    case RequestKind::WriteSingle:
    case RequestKind::Update:
    case RequestKind::Insert:
    case RequestKind::Remove:
        write(session, request);
        break;
    }
}

void RequestHandler::listTables(Session& session, const Request& request) {
    Reply reply = replyTo(request, ReplyKind::Tables);
    for (const Table& table : database_.schema().tables())
        reply.tables.push_back({table.name, table.singleRow()});
    session.reply(reply);
}

void RequestHandler::listColumns(Session& session, const Request& request) {
    const Table* table = database_.table(request.table);
    if (table == nullptr) {
        session.failed(request.sequence, {code::unknownTable, shown(request.table)});
        return;
    }
    Reply reply = replyTo(request, ReplyKind::Columns);
    for (const Column& column : table->columns)
        reply.columns.push_back({column.name, column.type});
    session.reply(reply);
}

void RequestHandler::read(Session& session, const Request& request) {
    const auto view =
        queue_.owns(session.id()) ? Database::View::OpenTransaction : Database::View::LastCommit;
    const bool crowded = crowded_();
    Rows rows;
    if (crowded)
        rows.limit = smallAnswer;
    const Result result = readInto(rows, request, view);
    if (result.ok())
        answerRows(session, request, rows);
    else if (crowded && result.code() == code::tooLarge)
        fail(session, request, {code::tooLarge, request.table + ", while so many answers wait to be read"});
    else
        fail(session, request, result);
}

Result RequestHandler::readInto(Rows& rows, const Request& request, Database::View view) {
    if (request.kind == RequestKind::ReadTable)
        return database_.readTable(request.table, view, rows);
    if (request.kind == RequestKind::ReadRow)
        return database_.readRow(request.table, request.number, view, rows);
    return database_.readKey(request.table, request.keyColumn, request.key, view, rows);
}

void RequestHandler::subscribe(Session& session, const Request& request) {
    std::set<std::string> tables;
    for (const std::string& name : request.names)
        if (database_.table(name) != nullptr) // others never change
            tables.insert(name);
    session.subscribe(std::move(tables), (request.number & leaveOutOwn) != 0);
    session.done(request.sequence);
}

void RequestHandler::begin(Session& session, const Request& request) {
    if (queue_.owns(session.id())) {
        session.failed(request.sequence, code::transactionOpen);
        return;
    }
    if (!queue_.isFree() && request.number == 0) {
        session.failed(request.sequence, code::busy);
        return;
    }
    const Clock::duration turn =
        std::min<Clock::duration>(std::chrono::milliseconds(request.number), longestTurn_);
    const Clock::time_point now = Clock::now();
    const bool free = queue_.isFree();
    waiting_[session.id()] = request.sequence;
    queue_.wait(session.id(), now + turn);
    if (free && queue_.admit(now))
        grant(session);
    else
        session.pause();
}

void RequestHandler::grant(Session& session) {
    session.putNotice(); // what was committed before this transaction is told before it begins
    session.done(waiting_[session.id()]);
    waiting_.erase(session.id());
}

void RequestHandler::busy(Session& session) {
    session.failed(waiting_[session.id()], code::busy);
    waiting_.erase(session.id());
}

void RequestHandler::expire(ClientId client) {
    database_.rollBack();
    expired_.insert(client);
}

void RequestHandler::forget(ClientId client) {
    if (queue_.owns(client))
        database_.rollBack();
    queue_.leave(client);
    waiting_.erase(client);
    expired_.erase(client);
}

void RequestHandler::commit(Session& session, const Request& request) {
    if (!queue_.owns(session.id())) {
        session.failed(request.sequence, code::noTransaction);
        return;
    }
    velta::NameList changed;
    const Result result = database_.commit(changed);
    queue_.leave(session.id());
    if (!changed.empty())
        committed_(changed, session.id());
    if (result.ok())
        session.done(request.sequence);
    else
        fail(session, request, result);
}

void RequestHandler::abort(Session& session, const Request& request) {
    if (!queue_.owns(session.id())) {
        session.failed(request.sequence, code::noTransaction);
        return;
    }
    database_.rollBack();
    queue_.leave(session.id());
    session.done(request.sequence);
}

void RequestHandler::write(Session& session, const Request& request) {
    if (!queue_.owns(session.id())) {
        session.failed(request.sequence, code::noTransaction);
        return;
    }
    std::uint32_t number = 0;
    if (const Result result = writeFrom(request, number); result.ok())
        session.done(request.sequence, number);
    else
        fail(session, request, result);
}

Result RequestHandler::writeFrom(const Request& request, std::uint32_t& number) {
    if (request.kind == RequestKind::WriteSingle)
        return database_.writeSingle(request.table, request.number, request.values);
    if (request.kind == RequestKind::Update)
        return database_.update(request.table, request.keyColumn, request.key, request.values);
    if (request.kind == RequestKind::Insert)
        return database_.insert(request.table, request.values, number);
    return database_.remove(request.table, request.keyColumn, request.key);
}

} // namespace store
