#include "tools/storetables.h"

#include <algorithm>
#include <exception>

namespace tools {

using orv::cfg::ConfigClient;
using orv::cfg::common::IConfigClient;
using velta::ValueList;
using velta::protocol::ColumnInfo;
using velta::protocol::EResultCode;
using velta::protocol::TableInfo;
namespace code = velta::protocol::code;

const ColumnInfo& Table::column(const std::string& columnName) const {
    const auto found = std::find_if(columns.begin(), columns.end(),
                                    [&](const ColumnInfo& column) { return column.name == columnName; });
    if (found == columns.end())
        throw Refused(EResultCode(code::unknownColumn, name + "." + columnName).strerror());
    return *found;
}

std::string failureText(const EResultCode& result) {
    if (result.code() == code::notConnected)
        return "the connection to the configuration store is lost";
    if (result.code() == code::wrongKind && !result.detail().empty())
        return result.detail(); // which names the cell and says what it takes
    return result.strerror();
}

void require(const EResultCode& result) {
    if (!result.ok())
        throw Refused(failureText(result));
}

void connect(orv::cfg::Connection& connection, const std::string& socketPath) {
    const EResultCode result = connection.open(connectPatience);
    if (result.ok())
        return;
    if (result.code() != code::notConnected)
        throw Refused(socketPath + ": " + result.strerror());
    std::string reason = result.detail();
    const std::string path = socketPath + ": ";
    if (reason.compare(0, path.size(), path) == 0)
        reason.erase(0, path.size());
    throw Refused("no configuration store at " + path + reason);
}

std::vector<TableInfo> listTables(ConfigClient& client) {
    std::vector<TableInfo> tables;
    require(client.tables(tables));
    return tables;
}

namespace {

TableInfo findTable(const std::vector<TableInfo>& tables, const std::string& name) {
    const auto found = std::find_if(tables.begin(), tables.end(),
                                    [&](const TableInfo& table) { return table.name == name; });
    if (found == tables.end())
        throw Refused(EResultCode(code::unknownTable, name).strerror());
    return *found;
}

} // namespace

std::vector<TableInfo> selectTables(ConfigClient& client, const std::vector<std::string>& names) {
    const std::vector<TableInfo> all = listTables(client);
    if (names.empty())
        return all;
    std::vector<TableInfo> selected;
    for (auto name = names.begin(); name != names.end(); ++name)
        if (std::find(names.begin(), name, *name) == name)
            selected.push_back(findTable(all, *name));
    return selected;
}

Table describeTable(ConfigClient& client, const std::string& name) {
    const TableInfo info = findTable(listTables(client), name);
    Table table{info.name, info.singleRow, {}};
    require(client.columns(name, table.columns));
    return table;
}

Rows readRows(IConfigClient& client, const std::string& table) {
    unsigned count = 0;
    require(client.size(table, count));
    Rows rows(count);
    for (unsigned i = 0; i < count; ++i)
        require(client.selectRow(table, i, rows[i], {}));
    return rows;
}

std::uint32_t idOf(const ValueList& row) {
    return static_cast<std::uint32_t>(row.getValue(idColumn).getInteger());
}

Transaction::Transaction(IConfigClient& client) : client_(client) {
    require(client_.startTransaction());
}

Transaction::~Transaction() {
    try {
        if (client_.isTransactionOpen())
            (void)client_.abortTransaction(); // what went wrong is told already
    } catch (const std::exception&) {         // without memory, say: the store drops it with the connection
    }
}

void Transaction::commit() {
    require(tryCommit());
}

EResultCode Transaction::tryCommit() {
    return client_.closeTransaction();
}

} // namespace tools
