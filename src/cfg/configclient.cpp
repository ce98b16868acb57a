#include "cfg/configclient.h"

#include "cfg/requests.h"

#include <utility>

namespace orv::cfg {

using velta::protocol::EResultCode;
using velta::protocol::Reply;
using velta::protocol::ReplyKind;
using velta::protocol::Request;
using velta::protocol::RequestKind;
using velta::protocol::RowsPiece;
namespace code = velta::protocol::code;

ConfigClient::ConfigClient(Connection& connection, unsigned transactionWait, BeforeTransaction before)
    : connection_(connection), transactionWait_(transactionWait), before_(std::move(before)) {}

EResultCode ConfigClient::size(const std::string& table, unsigned& rows) {
    snapshots_.erase(table);
    Request request = requests::of(RequestKind::ReadTable, table);
    Snapshot snapshot;
    const EResultCode result = readSnapshot(request, snapshot);
    if (!result.ok())
        return noted(result);
    rows = static_cast<unsigned>(snapshot.rows());
    snapshots_[table] = std::move(snapshot);
    return result;
}

EResultCode ConfigClient::selectRow(const std::string& table, unsigned row, velta::ValueList& values,
                                    const velta::NameList& columns) {
    const auto found = snapshots_.find(table);
    if (found == snapshots_.end()) {
        Request request = requests::of(RequestKind::ReadRow, table);
        request.number = row;
        return noted(readOneRow(std::move(request), columns, values));
    }
    values.clear();
    if (row >= found->second.rows())
        return EResultCode(code::noSuchRow, table + ", row " + std::to_string(row));
    found->second.row(row, columns, values);
    return {};
}

EResultCode ConfigClient::selectRowByKey(const std::string& table, const std::string& keyColumn,
                                         const std::string& key, velta::ValueList& values) {
    return noted(readOneRow(requests::byKey(RequestKind::ReadKey, table, keyColumn, key), {}, values));
}

EResultCode ConfigClient::writeSingleRow(const std::string& table, unsigned row,
                                         const velta::ValueList& values) {
    return write(requests::writeSingle(table, row, values));
}

EResultCode ConfigClient::updateRow(const std::string& table, const std::string& keyColumn,
                                    const std::string& key, const velta::ValueList& values) {
    return write(requests::update(table, keyColumn, key, values));
}

EResultCode ConfigClient::insertRow(const std::string& table, const velta::ValueList& values,
                                    std::uint32_t& id) {
    return write(requests::insert(table, values), &id);
}

EResultCode ConfigClient::removeRow(const std::string& table, const std::string& keyColumn,
                                    const std::string& key) {
    return write(requests::remove(table, keyColumn, key));
}

EResultCode ConfigClient::startTransaction() {
    const EResultCode ready = before_ ? before_() : EResultCode();
    if (!ready.ok())
        return ready;
    Reply reply;
    const EResultCode result = ask(beginning(), reply);
    if (result.ok())
        setTransactionOpen(true);
    return result;
}

Request ConfigClient::beginning() const {
    Request request = requests::of(RequestKind::Begin);
    request.number = transactionWait_;
    return request;
}

EResultCode ConfigClient::closeTransaction() {
    return endTransaction(RequestKind::Commit);
}

EResultCode ConfigClient::abortTransaction() {
    dropSnapshots(); // they may hold rows that are rolled back
    return endTransaction(RequestKind::Abort);
}

// Whatever the answer is, this client has no transaction afterwards.
EResultCode ConfigClient::endTransaction(RequestKind how) {
    Reply reply;
    const EResultCode result = ask(requests::of(how), reply);
    setTransactionOpen(false);
    return result;
}

EResultCode ConfigClient::tables(std::vector<velta::protocol::TableInfo>& tables) {
    Reply reply;
    const EResultCode result = ask(requests::of(RequestKind::Tables), reply, ReplyKind::Tables);
    tables = std::move(reply.tables);
    return result;
}

EResultCode ConfigClient::columns(const std::string& table,
                                  std::vector<velta::protocol::ColumnInfo>& columns) {
    Reply reply;
    const EResultCode result = ask(requests::of(RequestKind::Columns, table), reply, ReplyKind::Columns);
    columns = std::move(reply.columns);
    return result;
}

EResultCode ConfigClient::sharedColumns(const std::string& table,
                                        std::vector<velta::protocol::ColumnInfo>& columns) {
    Reply reply;
    const EResultCode result =
        ask(requests::of(RequestKind::SharedColumns, table), reply, ReplyKind::Columns);
    columns = std::move(reply.columns);
    return result;
}

EResultCode ConfigClient::describe(const std::string& table,
                                   std::vector<velta::protocol::ColumnDescription>& columns) {
    Reply reply;
    const EResultCode result = ask(requests::of(RequestKind::Describe, table), reply, ReplyKind::Description);
    columns = std::move(reply.descriptions);
    return result;
}

EResultCode ConfigClient::readTable(const std::string& table, Snapshot& rows) {
    Request request = requests::of(RequestKind::ReadTable, table);
    rows = Snapshot();
    return noted(readSnapshot(request, rows));
}

Pipeline ConfigClient::writesAhead() {
    dropSnapshots();
    return Pipeline(connection_);
}

// The end is sent before it is known whether the write succeeds: if it fails, a transaction without changes
// ends.
EResultCode ConfigClient::commitWrite(Request write) {
    const EResultCode ready = before_ ? before_() : EResultCode();
    if (!ready.ok())
        return ready;
    Pipeline pipeline = writesAhead();
    const bool sent = pipeline.send(beginning()).ok() && pipeline.send(std::move(write)).ok() &&
                      pipeline.send(requests::of(RequestKind::Commit)).ok();
    EResultCode result = pipeline.finish();
    if (!sent && pipeline.done() > 0)
        (void)endTransaction(RequestKind::Abort);
    return result;
}

void ConfigClient::connectionLost() {
    setTransactionOpen(false);
    dropSnapshots();
}

EResultCode ConfigClient::readSnapshot(Request& request, Snapshot& snapshot) {
    return connection_.exchangeRows(request, [&](const RowsPiece& piece) { return snapshot.append(piece); });
}

EResultCode ConfigClient::readOneRow(Request request, const velta::NameList& columns,
                                     velta::ValueList& values) {
    values.clear();
    Snapshot snapshot;
    const EResultCode result = readSnapshot(request, snapshot);
    if (!result.ok())
        return result;
    if (snapshot.rows() == 0)
        return EResultCode(code::noSuchRow, request.table);
    snapshot.row(0, columns, values);
    return result;
}

// The snapshot is dropped even if the write fails: the store may have carried it out all the same.
EResultCode ConfigClient::write(Request request, std::uint32_t* id) {
    snapshots_.erase(request.table);
    Reply reply;
    const EResultCode result = ask(std::move(request), reply);
    if (result.ok() && id != nullptr)
        *id = reply.number;
    return result;
}

EResultCode ConfigClient::ask(Request request, Reply& reply, ReplyKind expected) {
    return noted(connection_.exchange(request, reply, expected));
}

EResultCode ConfigClient::noted(EResultCode result) {
    if (result.code() == code::transactionExpired || result.code() == code::noTransaction)
        setTransactionOpen(false);
    return result;
}

void ConfigClient::setTransactionOpen(bool open) {
    transactionOpen_ = open;
    connection_.setInTransaction(open);
}

} // namespace orv::cfg
