#include "store/rowreading.h"

#include "store/cells.h"
#include "velta/protocol/frame.h"

namespace store {

namespace {

constexpr std::size_t headRoom = 1024; // more than the message takes besides names and cells
constexpr std::size_t bytesBesideName = 4;

std::size_t roomForCells(const Table& table) {
    std::size_t room = velta::protocol::frameLimit - headRoom;
    for (const Column& column : table.columns)
        room -= column.name.size() + bytesBesideName;
    return room;
}

} // namespace

RowCollector::RowCollector(const Table& table, Rows& rows)
    : table_(table), rows_(rows), room_(roomForCells(table)) {
    for (const Column& column : table.columns)
        rows_.columns.push_back(column.name);
    rows_.pieces.emplace_back();
}

bool RowCollector::add(const Statement::Run& run) {
    row_.clear();
    velta::protocol::Writer writer(row_);
    for (std::size_t i = 0; i < table_.columns.size(); ++i)
        writeCell(writer, table_.columns[i].type, run, static_cast<int>(i));
    bytes_ += row_.size();
    if (bytes_ > rows_.limit)
        return false;
    if (rows_.pieces.back().cells.size() + row_.size() > room_)
        rows_.pieces.emplace_back();
    Rows::Piece& piece = rows_.pieces.back();
    piece.cells += row_;
    ++piece.rows;
    ++rows_.total;
    return true;
}

} // namespace store
