#include "tools/cfgctl/load.h"

#include "tools/cells.h"

#include <algorithm>

namespace tools::cfgctl {

using orv::cfg::Snapshot;
using velta::Value;
using velta::ValueList;
using velta::protocol::ColumnInfo;

namespace {

Value toCell(const ColumnInfo& column, const LoadCell& cell) {
    const auto* number = std::get_if<std::int64_t>(&cell);
    return number != nullptr ? cellFromNumber(column, *number)
                             : cellFromQuotedText(column, std::get<std::string>(cell));
}

// Most files have the columns in the table's order: it is looked first where the column stands there.
const ColumnInfo& columnAt(const Table& table, std::size_t index, const std::string& name) {
    const bool inOrder = index < table.columns.size() && table.columns[index].name == name;
    return inOrder ? table.columns[index] : table.column(name);
}

const Value& cellAt(const ValueList& row, std::size_t index, const std::string& name) {
    if (index < row.size() && (row.begin() + static_cast<std::ptrdiff_t>(index))->first == name)
        return (row.begin() + static_cast<std::ptrdiff_t>(index))->second;
    return row.getValue(name);
}

ValueList differing(const ValueList& current, const ValueList& wanted) {
    ValueList cells;
    std::size_t index = 0;
    for (const auto& [column, value] : wanted)
        if (cellAt(current, index++, column) != value)
            cells.add(column, value);
    return cells;
}

} // namespace

ValueList wantedRow(const LoadRow& file, const Table& table) {
    ValueList row;
    row.reserve(file.cells.size());
    std::size_t index = 0;
    for (const auto& [name, cell] : file.cells)
        row.add(name, toCell(columnAt(table, index++, name), cell));
    return row;
}

void LoadCheck::table(const std::string& name, bool list) {
    Table table = describe_(name);
    if (list && table.singleRow)
        throw Refused("table " + name + ": it has a single row, an object is expected, not a list");
    if (!list && !table.singleRow)
        throw Refused("table " + name + ": it has many rows, a list is expected, not an object");
    current_ = &tables_[name];
    current_->table = std::move(table);
}

void LoadCheck::row(const LoadRow& file, const std::string& place) {
    ValueList row;
    try {
        row = wantedRow(file, current_->table);
    } catch (const Refused& refused) {
        throw Refused(place + ": " + refused.what());
    }
    if (!row.hasValue(idColumn))
        current_->hasRowsWithoutId = current_->hasRowsWithoutId || !current_->table.singleRow;
    else if (!current_->ids.insert(idOf(row)))
        throw Refused(place + ": Id " + std::to_string(idOf(row)) + " stands there twice");
}

bool LoadCheck::hasRowsWithoutId() const {
    return std::any_of(tables_.begin(), tables_.end(),
                       [](const auto& entry) { return entry.second.hasRowsWithoutId; });
}

LoadPlan::LoadPlan(const WantedTable& wanted, const Snapshot& current, Sink sink)
    : wanted_(wanted), current_(current), sink_(std::move(sink)) {
    if (wanted.table.singleRow)
        return;
    ids_.reserve(current.rows());
    ValueList id;
    for (std::size_t row = 0; row < current.rows(); ++row) {
        current.row(row, {idColumn}, id);
        ids_.push_back(idOf(id));
    }
}

void LoadPlan::removeOthers() {
    for (const std::uint32_t id : ids_)
        if (!wanted_.ids.contains(id))
            sink_(Write{Write::Kind::Remove,
                        id,
                        {},
                        "table " + wanted_.table.name + ", removal of row " + std::to_string(id)});
}

void LoadPlan::write(const ValueList& row, const std::string& place) {
    const bool single = wanted_.table.singleRow;
    const std::uint32_t id = single ? 0 : idOf(row);
    const std::optional<std::size_t> found = single ? std::optional<std::size_t>(0) : find(id);
    if (!found) {
        sink_(Write{Write::Kind::Insert, 0, row, place});
        return;
    }
    ValueList present;
    if (*found < current_.rows())
        current_.row(*found, {}, present);
    const ValueList cells = differing(present, row);
    if (!cells.empty())
        sink_(Write{single ? Write::Kind::WriteSingle : Write::Kind::Update, id, cells, place});
}

// Most files have the rows in Id order.
std::optional<std::size_t> LoadPlan::find(std::uint32_t id) {
    if (next_ >= ids_.size() || ids_[next_] != id)
        next_ = static_cast<std::size_t>(std::lower_bound(ids_.begin(), ids_.end(), id) - ids_.begin());
    if (next_ >= ids_.size() || ids_[next_] != id)
        return std::nullopt;
    return next_++;
}

} // namespace tools::cfgctl
