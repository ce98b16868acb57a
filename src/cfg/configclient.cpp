#include "cfg/configclient.h"

#include <utility>

namespace orv::cfg {

using velta::protocol::EResultCode;
using velta::protocol::Reply;
using velta::protocol::ReplyKind;
using velta::protocol::Request;
using velta::protocol::RequestKind;
using velta::protocol::RowsPiece;
namespace code = velta::protocol::code;

namespace {

Request requestFor(RequestKind kind, const std::string& table = {}) {
    Request request;
    request.kind = kind;
    request.table = table;
    return request;
}

Request requestByKey(RequestKind kind, const std::string& table, const std::string& keyColumn,
                     const std::string& key) {
    Request request = requestFor(kind, table);
    request.keyColumn = keyColumn;
    request.key = key;
    return request;
}

} // namespace

ConfigClient::ConfigClient(Connection& connection, unsigned transactionWait, BeforeTransaction before)
    : connection_(connection), transactionWait_(transactionWait), before_(std::move(before)) {}

EResultCode ConfigClient::size(const std::string& table, unsigned& rows) {
    snapshots_.erase(table);
    Request request = requestFor(RequestKind::ReadTable, table);
    Snapshot snapshot;
    const EResultCode result = readSnapshot(request, snapshot);
    if (!result.ok())
        return counted(result);
    rows = static_cast<unsigned>(snapshot.rows());
    snapshots_[table] = std::move(snapshot);
    return result;
}

EResultCode ConfigClient::selectRow(const std::string& table, unsigned row, velta::ValueList& values,
                                    const velta::NameList& columns) {
    const auto found = snapshots_.find(table);
    if (found == snapshots_.end()) {
        Request request = requestFor(RequestKind::ReadRow, table);
        request.number = row;
        return counted(readOneRow(std::move(request), columns, values));
    }
    values.clear();
    if (row >= found->second.rows())
        return counted(EResultCode(code::noSuchRow, table + ", row " + std::to_string(row)));
    found->second.row(row, columns, values);
    return {};
}

EResultCode ConfigClient::selectRowByKey(const std::string& table, const std::string& keyColumn,
                                         const std::string& key, velta::ValueList& values) {
    return counted(readOneRow(requestByKey(RequestKind::ReadKey, table, keyColumn, key), {}, values));
}

EResultCode ConfigClient::writeSingleRow(const std::string& table, unsigned row,
                                         const velta::ValueList& values) {
    Request request = requestFor(RequestKind::WriteSingle, table);
    request.number = row;
    request.values = values;
    return write(std::move(request));
}

EResultCode ConfigClient::updateRow(const std::string& table, const std::string& keyColumn,
                                    const std::string& key, const velta::ValueList& values) {
    Request request = requestByKey(RequestKind::Update, table, keyColumn, key);
    request.values = values;
    return write(std::move(request));
}

EResultCode ConfigClient::insertRow(const std::string& table, const velta::ValueList& values,
                                    std::uint32_t& id) {
    Request request = requestFor(RequestKind::Insert, table);
    request.values = values;
    return write(std::move(request), &id);
}

EResultCode ConfigClient::removeRow(const std::string& table, const std::string& keyColumn,
                                    const std::string& key) {
    return write(requestByKey(RequestKind::Remove, table, keyColumn, key));
}

EResultCode ConfigClient::startTransaction() {
    const EResultCode ready = before_ ? before_() : EResultCode();
    if (!ready.ok())
        return counted(ready);
    Request request = requestFor(RequestKind::Begin);
    request.number = transactionWait_;
    Reply reply;
    const EResultCode result = connection_.exchange(request, reply);
    if (result.ok())
        transactionOpen_ = true;
    return counted(result);
}

EResultCode ConfigClient::closeTransaction() {
    return endTransaction(RequestKind::Commit);
}

EResultCode ConfigClient::abortTransaction() {
    dropSnapshots(); // they may show what is taken back
    return endTransaction(RequestKind::Abort);
}

// Whatever the answer is, the store holds no transaction of this client afterwards.
EResultCode ConfigClient::endTransaction(RequestKind how) {
    Request request = requestFor(how);
    Reply reply;
    const EResultCode result = connection_.exchange(request, reply);
    transactionOpen_ = false;
    return counted(result);
}

EResultCode ConfigClient::tables(std::vector<velta::protocol::TableInfo>& tables) {
    Request request = requestFor(RequestKind::Tables);
    Reply reply;
    const EResultCode result = connection_.exchange(request, reply, ReplyKind::Tables);
    tables = std::move(reply.tables);
    return counted(result);
}

EResultCode ConfigClient::columns(const std::string& table,
                                  std::vector<velta::protocol::ColumnInfo>& columns) {
    Request request = requestFor(RequestKind::Columns, table);
    Reply reply;
    const EResultCode result = connection_.exchange(request, reply, ReplyKind::Columns);
    columns = std::move(reply.columns);
    return counted(result);
}

void ConfigClient::connectionLost() {
    transactionOpen_ = false;
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

// The snapshot goes even where the write fails: it may have failed halfway.
EResultCode ConfigClient::write(Request request, std::uint32_t* id) {
    snapshots_.erase(request.table);
    Reply reply;
    const EResultCode result = connection_.exchange(request, reply);
    if (result.ok() && id != nullptr)
        *id = reply.number;
    return counted(result);
}

EResultCode ConfigClient::counted(EResultCode result) {
    if (!result.ok())
        ++failures_;
    if (result.code() == code::transactionExpired || result.code() == code::noTransaction)
        transactionOpen_ = false;
    return result;
}

} // namespace orv::cfg
