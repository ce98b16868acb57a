#pragma once

#include "store/storage/rows.h"
#include "store/storage/schema.h"
#include "store/storage/tablestatements.h"
#include "velta/protocol/resultcode.h"

#include <cstdint>
#include <deque>
#include <map>
#include <string>

namespace store {

// A table of the schema and its statements on one connection.
struct ConnectedTable {
    ConnectedTable(const Table& table, std::size_t position, Connection& connection)
        : description(table), index(position), statements(connection, table) {}

    const Table& description;
    std::size_t index; // in the schema
    TableStatements statements;
};

// Reads rows through one connection, as that connection sees them. The connection and the schema outlive it.
class TableReader {
public:
    using Result = velta::protocol::EResultCode;

    TableReader(const Schema& schema, Connection& connection);

    // `index` counts from 0 in Id order.
    Result readRow(const std::string& table, std::uint32_t index, Rows& rows);
    Result readKey(const std::string& table, const std::string& keyColumn, const std::string& key,
                   Rows& rows);

    Result find(const std::string& table, ConnectedTable*& found);
    ConnectedTable& at(std::size_t index) { return tables_[index]; }
    // The first row that holds the key.
    Result findRow(ConnectedTable& table, const std::string& keyColumn, const std::string& key,
                   std::int64_t& rowId);
    // The result of a step on this connection.
    Result resultOf(int sqliteCode) const { return connection_.resultOf(sqliteCode); }

private:
    Result readOne(ConnectedTable& table, Statement& statement, std::int64_t parameter,
                   const std::string& row, Rows& rows);

    Connection& connection_;
    std::deque<ConnectedTable> tables_; // in the schema's order
    std::map<std::string, ConnectedTable*> byName_;
};

} // namespace store
