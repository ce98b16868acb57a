#include "store/storage/tablereading.h"

#include "store/storage/rowwriter.h"

#include <utility>

namespace store {

namespace code = velta::protocol::code;
using Result = TableReading::Result;

namespace {

constexpr std::size_t keptPiece = 64 * 1024; // bytes

} // namespace

TableReading::TableReading(ConnectedTable& table, Snapshots::Lease snapshot)
    : table_(table),
      snapshot_(std::move(snapshot)),
      reader_(snapshot_->reader()),
      columns_(table.description.columnNames()) {}

TableReading::TableReading(ConnectedTable& table, TableReader& ownWrites)
    : table_(table),
      snapshot_(nullptr, Snapshots::GiveBack{nullptr, 0}),
      reader_(ownWrites),
      columns_(table.description.columnNames()) {}

Result TableReading::begin() {
    {
        Statement::Run count(table_.statements.count());
        const int step = count.step();
        if (step != SQLITE_ROW)
            return reader_.resultOf(step);
        total_ = static_cast<std::uint32_t>(count.number(0));
    }
    run_.emplace(table_.statements.all());
    return {};
}

Result TableReading::next(Rows& rows, std::size_t bytes) {
    if (kept_.empty())
        return read(rows, bytes);
    rows = std::move(kept_.front());
    kept_.pop_front();
    keptBytes_ -= rows.cells.size();
    return {};
}

Result TableReading::read(Rows& rows, std::size_t bytes) {
    rows.count = 0;
    rows.cells.clear();
    while (!atEnd_ && rows.cells.size() < bytes) {
        const int step = run_->step();
        if (step == SQLITE_ROW) {
            appendRow(rows, table_.description, *run_);
            continue;
        }
        Result result = reader_.resultOf(step);
        endRun();
        if (!result.ok())
            return result;
    }
    return {};
}

Result TableReading::keepRest(std::size_t most) {
    while (!atEnd_) {
        Rows rows;
        if (Result result = read(rows, keptPiece); !result.ok())
            return result;
        keptBytes_ += rows.cells.size();
        if (keptBytes_ > most) {
            endRun();
            return {code::tooLarge, table_.description.name};
        }
        if (rows.count > 0)
            kept_.push_back(std::move(rows));
    }
    return {};
}

void TableReading::endRun() {
    atEnd_ = true;
    run_.reset();
    snapshot_.reset();
}

} // namespace store
