#pragma once

#include "store/databasefile.h"
#include "store/schema.h"
#include "store/sqlite.h"
#include "store/tablestatements.h"
#include "store/touchedrows.h"
#include "velta/namelist.h"
#include "velta/protocol/resultcode.h"
#include "velta/valuelist.h"

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

namespace store {

// Rows as they travel: the cells one after the other, in pieces that each fit into a message.
struct Rows {
    static constexpr std::size_t mostBytes = 64 * 1024 * 1024;
    struct Piece {
        std::uint32_t rows = 0;
        std::string cells;
    };
    velta::NameList columns;
    std::uint32_t total = 0;
    std::vector<Piece> pieces;     // at least one
    std::size_t limit = mostBytes; // of all cells; a reading that would take more fails as too large
};

// The tables of a schema in an SQLite file, with one transaction at a time.
//
// The writes of the transaction go through one connection, the last commit is read through another. A
// transaction begins with its first write and ends with commit() or rollBack(). Errors of SQLite come back as
// codes; one that ended the transaction comes back from every later write and from commit().
class Database {
public:
    using Result = velta::protocol::EResultCode;

    enum class View { LastCommit, OpenTransaction };

    // An empty path keeps the tables in memory. Throws StorageError.
    Database(Schema schema, const std::string& path);

    const Schema& schema() const { return schema_; }
    const Table* table(const std::string& name) const;
    const DatabaseFile& file() const { return file_; }

    Result readTable(const std::string& table, View view, Rows& rows);
    // `index` counts from 0 in Id order.
    Result readRow(const std::string& table, std::uint32_t index, View view, Rows& rows);
    Result readKey(const std::string& table, const std::string& keyColumn, const std::string& key, View view,
                   Rows& rows);

    Result writeSingle(const std::string& table, std::uint32_t row, const velta::ValueList& values);
    Result update(const std::string& table, const std::string& keyColumn, const std::string& key,
                  const velta::ValueList& values);
    Result insert(const std::string& table, const velta::ValueList& values, std::uint32_t& id);
    Result remove(const std::string& table, const std::string& keyColumn, const std::string& key);

    // The transaction is over, whatever the result. `changed` gets the tables in which a cell is not as
    // before; when there is none nothing is written.
    Result commit(velta::NameList& changed);
    void rollBack();

private:
    struct Entry {
        Entry(const Table& description, std::size_t position, sqlite3* writer, sqlite3* reader)
            : table(description),
              index(position),
              writing(writer, description),
              reading(reader, description) {}

        TableStatements& statements(View view) { return view == View::LastCommit ? reading : writing; }

        const Table& table;
        std::size_t index;
        TableStatements writing;
        TableStatements reading;
    };

    sqlite3* connection(View view) const;
    Result find(const std::string& table, Entry*& entry);
    Result findRow(Entry& entry, const std::string& keyColumn, const std::string& key, View view,
                   std::int64_t& rowId);
    Result readOne(Entry& entry, Statement& statement, std::int64_t parameter, View view,
                   const std::string& row, Rows& rows);
    Result nextId(Entry& entry, std::int64_t& id);
    Result idFor(Entry& entry, const velta::ValueList& values, std::int64_t& id);

    Result beginWriting();
    // Runs a statement that writes; remembers an error that ended the transaction.
    Result write(Statement::Run& run);
    Result writeCells(Entry& entry, std::int64_t rowId, const velta::ValueList& values);
    Result exists(Entry& entry, std::int64_t rowId, bool& there);
    Result differs(Entry& entry, std::int64_t rowId, bool& different);
    Result tableChanged(Entry& entry, const TouchedRows::OfTable& touched, bool& changed);
    Result commitWritten();
    Result changedTables(velta::NameList& changed);

    Schema schema_;
    DatabaseFile file_;
    Connection writer_;
    Connection reader_;
    Statement begin_;
    Statement commit_;
    Statement rollBack_;
    std::deque<Entry> entries_; // one a table, in the schema's order
    std::map<std::string, Entry*> byName_;

    bool writing_ = false;
    Result failure_; // what ended the transaction before its owner did
    TouchedRows touched_;
};

} // namespace store
