#include "tools/load.h"

#include "tools/cells.h"

#include <map>
#include <set>

namespace cfgctl {

using orv::cfg::ConfigClient;
using velta::Value;
using velta::ValueList;
using velta::protocol::ColumnInfo;
using velta::protocol::EResultCode;

namespace {

Value toCell(const ColumnInfo& column, const LoadCell& cell) {
    const auto* number = std::get_if<std::int64_t>(&cell);
    return number != nullptr ? cellFromNumber(column, *number)
                             : cellFromQuotedText(column, std::get<std::string>(cell));
}

WantedRow wantedRow(const LoadRow& file, const Table& table) {
    WantedRow row;
    row.cells.reserve(file.cells.size());
    for (const auto& [name, cell] : file.cells) {
        row.cells.add(name, toCell(table.column(name), cell));
        if (name == idColumn)
            row.id = idOf(row.cells);
    }
    return row;
}

// Rows count from 1.
std::string placeOf(const LoadTable& file, std::size_t row) {
    return "table " + file.name + (file.list ? ", row " + std::to_string(row + 1) : "");
}

ValueList differing(const ValueList& current, const ValueList& wanted) {
    ValueList cells;
    for (const auto& [column, value] : wanted)
        if (current.getValue(column) != value)
            cells.add(column, value);
    return cells;
}

std::vector<Write> planSingleRow(const Rows& current, const std::vector<WantedRow>& wanted) {
    const ValueList row = current.empty() ? ValueList() : current.front();
    const ValueList cells = differing(row, wanted.front().cells);
    if (cells.empty())
        return {};
    return {Write{Write::Kind::WriteSingle, 0, cells, wanted.front().place}};
}

using RowsById = std::map<std::uint32_t, const ValueList*>;

void planRemovals(const std::string& table, const RowsById& current, const std::vector<WantedRow>& wanted,
                  std::vector<Write>& writes) {
    RowsById left = current;
    for (const WantedRow& row : wanted)
        if (row.id)
            left.erase(*row.id);
    for (const auto& row : left)
        writes.push_back(Write{Write::Kind::Remove,
                               row.first,
                               {},
                               "table " + table + ", removal of row " + std::to_string(row.first)});
}

void planUpdates(const RowsById& current, const std::vector<WantedRow>& wanted, std::vector<Write>& writes) {
    for (const WantedRow& row : wanted) {
        const auto found = row.id ? current.find(*row.id) : current.end();
        if (found == current.end())
            continue;
        const ValueList cells = differing(*found->second, row.cells);
        if (!cells.empty())
            writes.push_back(Write{Write::Kind::Update, *row.id, cells, row.place});
    }
}

void planInserts(const RowsById& current, const std::vector<WantedRow>& wanted, bool withId,
                 std::vector<Write>& writes) {
    for (const WantedRow& row : wanted)
        if (row.id.has_value() == withId && !(row.id && current.count(*row.id) > 0))
            writes.push_back(Write{Write::Kind::Insert, 0, row.cells, row.place});
}

EResultCode perform(ConfigClient& client, const std::string& table, const Write& write) {
    std::uint32_t newId = 0;
    switch (write.kind) {
    case Write::Kind::WriteSingle:
        return client.writeSingleRow(table, 0, write.cells);
    case Write::Kind::Update:
        return client.updateRow(table, idColumn, std::to_string(write.id), write.cells);
    case Write::Kind::Remove:
        return client.removeRow(table, idColumn, std::to_string(write.id));
    case Write::Kind::Insert:
        return client.insertRow(table, write.cells, newId);
    }
    return velta::protocol::code::failure;
}

} // namespace

std::vector<WantedRow> wantedRows(const LoadTable& file, const Table& table) {
    if (file.list && table.singleRow)
        throw Refused("table " + file.name + ": it has a single row, an object is expected, not a list");
    if (!file.list && !table.singleRow)
        throw Refused("table " + file.name + ": it has many rows, a list is expected, not an object");
    std::vector<WantedRow> rows;
    std::set<std::uint32_t> ids;
    for (std::size_t i = 0; i < file.rows.size(); ++i) {
        try {
            rows.push_back(wantedRow(file.rows[i], table));
        } catch (const Refused& refused) {
            throw Refused(placeOf(file, i) + ": " + refused.what());
        }
        rows.back().place = placeOf(file, i);
        const std::optional<std::uint32_t>& id = rows.back().id;
        if (id && !ids.insert(*id).second)
            throw Refused(placeOf(file, i) + ": Id " + std::to_string(*id) + " stands there twice");
    }
    return rows;
}

std::vector<Write> planWrites(const Table& table, const Rows& current, const std::vector<WantedRow>& wanted) {
    if (table.singleRow)
        return planSingleRow(current, wanted);
    RowsById byId;
    for (const ValueList& row : current)
        byId[idOf(row)] = &row;
    std::vector<Write> writes;
    planRemovals(table.name, byId, wanted, writes);
    planUpdates(byId, wanted, writes);
    planInserts(byId, wanted, true, writes);
    planInserts(byId, wanted, false, writes); // last: an Id that the store gives can't be a wanted one then
    return writes;
}

void loadTables(ConfigClient& client, const std::vector<LoadTable>& file) {
    std::vector<std::pair<Table, std::vector<WantedRow>>> targets;
    for (const LoadTable& table : file) {
        Table described = describeTable(client, table.name);
        std::vector<WantedRow> rows = wantedRows(table, described);
        targets.emplace_back(std::move(described), std::move(rows));
    }
    Transaction transaction(client);
    for (const auto& [table, wanted] : targets)
        for (const Write& write : planWrites(table, readRows(client, table.name), wanted)) {
            const EResultCode result = perform(client, table.name, write);
            if (!result.ok())
                throw Refused(write.place + ": " + failureText(result));
        }
    transaction.commit();
}

} // namespace cfgctl
