#include "cfg/snapshot.h"

#include "velta/protocol/wire.h"

#include <algorithm>

namespace orv::cfg {

namespace {

// Bytes of memory for one table's rows. The store lets no table grow beyond 64 MiB of cells, but a table that
// is larger already stays readable, and a row's position can take more memory than its cells.
constexpr std::size_t tableLimit = 256 * 1024 * 1024;
constexpr std::size_t storeLimit = 64 * 1024 * 1024; // bytes of cells
constexpr std::size_t leastCell = 5;                 // bytes of a cell, and of the shortest row
static_assert(tableLimit > storeLimit + storeLimit / leastCell * sizeof(std::size_t),
              "every table that the store lets grow can be read");

} // namespace

const char* Snapshot::append(const velta::protocol::RowsPiece& piece) {
    if (!begun_) {
        columns_ = piece.columns;
        totalRows_ = piece.totalRows;
        begun_ = true;
    }
    if (const char* fault = faultOf(piece))
        return fault;
    velta::protocol::Reader reader(piece.cells);
    for (std::uint32_t row = 0; row < piece.rows; ++row) {
        rowBegins_.push_back(cells_.size() + (piece.cells.size() - reader.rest().size()));
        for (std::size_t column = 0; column < piece.columns.size(); ++column)
            reader.skipValue();
    }
    cells_.append(piece.cells);
    return nullptr;
}

const char* Snapshot::faultOf(const velta::protocol::RowsPiece& piece) const {
    if (piece.columns != columns_ || piece.totalRows != totalRows_)
        return "pieces of different tables in one answer";
    const std::size_t rowsNow = rows() + piece.rows;
    if (piece.last ? rowsNow != totalRows_ : piece.rows == 0 || rowsNow >= totalRows_)
        return "a number of rows that is not the one announced";
    return bytesWith(piece) > tableLimit ? "a table larger than any" : nullptr;
}

// Counts the positions as well, which can take more memory than the cells.
std::size_t Snapshot::bytesWith(const velta::protocol::RowsPiece& piece) const {
    return cells_.size() + piece.cells.size() + (rows() + piece.rows) * sizeof(std::size_t);
}

void Snapshot::row(std::size_t index, const velta::NameList& columns, velta::ValueList& values) const {
    values.clear();
    values.reserve(columns.empty() ? columns_.size() : columns.size());
    velta::protocol::Reader reader(std::string_view(cells_).substr(rowBegins_[index]));
    for (const std::string& name : columns_) {
        const velta::Value value = reader.value();
        if (columns.empty() || std::find(columns.begin(), columns.end(), name) != columns.end())
            values.add(name, value);
    }
}

} // namespace orv::cfg
