#pragma once

#include "cfg/iconfigclient.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace orv::simulation {

// The configuration store in memory, as one client sees it.
//
// It keeps the store's contract: rows stand in Id order; a table without "Id" has one row; every write needs
// a transaction, and there is one at a time; a commit marks the tables in which it changed a cell, an abort
// takes everything back. Whoever else writes does it with edit().
class Tables : public cfg::common::IConfigClient {
public:
    using EResultCode = velta::protocol::EResultCode;
    using Rows = std::vector<velta::ValueList>;

    enum class Operation { Size, SelectRow, SelectRowByKey, WriteSingleRow, UpdateRow, Start, Close, Abort };
    // Asked before each operation of the client; `table` is empty where the operation has none. What is not a
    // success becomes the operation's result, and nothing else happens; but a commit whose outcome is unknown
    // goes through: the answer is what got lost.
    using Fault = std::function<EResultCode(Operation operation, const std::string& table)>;

    // One cell that a commit changed; several stand in the order in which they were first written.
    struct Change {
        std::string table;
        int id; // of its row; 0 in a table without "Id"
        std::string column;
        velta::Value before;
        velta::Value after;
    };
    using Changes = std::vector<Change>;

    void onFault(Fault fault) { fault_ = std::move(fault); }
    // Told of each commit of the client, with the cells that it changed: none where it wrote what was there.
    void onCommit(std::function<void(const Changes&)> handler) { onCommit_ = std::move(handler); }

    // What is committed. The rows of a table that is not there are none.
    const Rows& rows(const std::string& table) const;
    // Where a row without that cell, or no row at all, is found, the number is 0 and the text empty.
    int number(const std::string& table, const std::string& column, int id = 0) const;
    std::string text(const std::string& table, const std::string& column, int id = 0) const;

    bool has(const std::string& table) const { return committed_.count(table) != 0; }
    // Counts the commits that changed something, anyone's, of all tables or of one.
    std::uint64_t version() const { return version_; }
    std::uint64_t version(const std::string& table) const;

    // Another client's commit: sets the table's rows, which are brought into Id order. A transaction that is
    // open goes on from there, without what it wrote to this table.
    void edit(const std::string& table, Rows rows);
    // Takes a table away.
    void remove(const std::string& table);
    // The tables that changed since the last call, each once, the client's own commits included.
    std::set<std::string> takeNotices();
    bool hasNotices() const { return !notices_.empty(); }
    // Of one of these tables.
    bool hasNotices(const std::set<std::string>& tables) const;
    // The client's connection is lost: its transaction is rolled back, and nobody tells it what has changed.
    void disconnect();

    EResultCode size(const std::string& table, unsigned& rows) override;
    EResultCode selectRow(const std::string& table, unsigned row, velta::ValueList& values,
                          const velta::NameList& columns) override;
    EResultCode selectRowByKey(const std::string& table, const std::string& keyColumn, const std::string& key,
                               velta::ValueList& values) override;
    EResultCode writeSingleRow(const std::string& table, unsigned row,
                               const velta::ValueList& values) override;
    EResultCode updateRow(const std::string& table, const std::string& keyColumn, const std::string& key,
                          const velta::ValueList& values) override;
    bool isTransactionOpen() override { return open_.has_value(); }
    EResultCode startTransaction() override;
    EResultCode closeTransaction() override;
    EResultCode abortTransaction() override;

private:
    using TableMap = std::map<std::string, Rows>;
    using Cell = std::tuple<std::string, int, std::string>; // table, row and column

    EResultCode before(Operation operation, const std::string& table = {}) const;
    const Rows* find(const std::string& table) const;
    // The rows of a table for an operation that reads them, or that writes them within the transaction; or
    // why it can't.
    EResultCode read(Operation operation, const std::string& table, const Rows*& rows) const;
    EResultCode write(Operation operation, const std::string& table, Rows*& rows);
    void remember(const std::string& table, const velta::ValueList& row, const velta::ValueList& cells);
    void note(const std::string& table, const Rows& before, const Rows& after, Changes& changes);
    void bringIntoOrder(Changes& changes) const;
    void changed(const std::string& table);

    TableMap committed_;
    std::optional<TableMap> open_;        // the tables that the open transaction wrote, as it sees them
    std::map<Cell, std::size_t> written_; // the order of what it wrote
    std::set<std::string> notices_;
    std::uint64_t version_ = 0;
    std::map<std::string, std::uint64_t> versions_;
    Fault fault_;
    std::function<void(const Changes&)> onCommit_;
};

// The "Id" of a row; 0 where it has none.
int idOf(const velta::ValueList& row);
// The row of that Id, nothing where there is none. Of several rows with the same Id, the first one.
const velta::ValueList* findRow(const Tables::Rows& rows, int id);
velta::ValueList* findRow(Tables::Rows& rows, int id);
// The row with these cells in it, each in the place and with the type of the one of that name, and the others
// behind.
velta::ValueList with(const velta::ValueList& row, const velta::ValueList& cells);

} // namespace orv::simulation
