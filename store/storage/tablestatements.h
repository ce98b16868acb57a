#pragma once

#include "store/storage/schema.h"
#include "store/storage/sqlite.h"

#include <memory>
#include <vector>

namespace store {

// The statements of one table on one connection. A row is addressed by its row id. That is its Id; in a
// single-row table it is 1.
//
// Results have the columns in the schema's order.
class TableStatements {
public:
    TableStatements(Connection& connection, const Table& table);

    Statement& count() { return count_; }
    Statement& all() { return all_; }
    Statement& byIndex() { return byIndex_; } // parameter 1: the index from 0
    Statement& byRowId() { return byRowId_; } // parameter 1: the row id
    // The row id of the first row with a key in that column. Parameter 1: the key.
    Statement& find(std::size_t column);
    // Parameter n is the nth column, counted from 1. Left unbound, it leaves the cell as it is, or gives a
    // new row the default. The parameter after the last column is the row id; update() needs it.
    Statement& update() { return update_; }
    Statement& insert() { return insert_; }
    Statement& remove() { return remove_; } // parameter 1: the row id
    Statement& highestRowId() { return highestRowId_; }

private:
    Connection& connection_;
    const Table& table_;
    Statement count_;
    Statement all_;
    Statement byIndex_;
    Statement byRowId_;
    Statement update_;
    Statement insert_;
    Statement remove_;
    Statement highestRowId_;
    std::vector<std::unique_ptr<Statement>> find_; // made when asked for
};

} // namespace store
