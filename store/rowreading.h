#pragma once

#include "store/database.h"

namespace store {

// Gathers rows of a table into pieces that fit into messages.
class RowCollector {
public:
    RowCollector(const Table& table, Rows& rows);

    // Takes the row that the run stands on, with the table's columns in their order. False when the answer
    // would become too large.
    [[nodiscard]] bool add(const Statement::Run& run);

private:
    const Table& table_;
    Rows& rows_;
    std::size_t room_;      // bytes for the cells of one piece
    std::size_t bytes_ = 0; // of all pieces
    std::string row_;
};

} // namespace store
