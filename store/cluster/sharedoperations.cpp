#include "store/cluster/sharedoperations.h"

#include "store/cluster/ovsdbvalue.h"

#include <algorithm>
#include <utility>

namespace store {

namespace code = velta::protocol::code;
using Result = velta::protocol::EResultCode;

namespace {

Json uuid(const std::string& text) {
    return Json::array({"uuid", text});
}

std::string nameOf(const Table& table, std::int64_t id) {
    return table.singleRow() ? table.name : table.name + '.' + std::to_string(id);
}

// The shared cells as the cluster has them, those alone that differ from `before` where that is given.
Result appendCells(const Table& table, const SharedRow& row, const SharedCells& cells,
                   const SharedCells* before, Json& object) {
    const velta::NameList columns = table.sharedColumns();
    for (std::size_t i = 0; i < columns.size(); ++i) {
        if (before != nullptr && cells[i] == (*before)[i])
            continue;
        std::string complaint;
        const std::optional<Json> atom = atomOf(cells[i], complaint);
        if (!atom)
            return {code::wrongKind, nameOf(table, row.id) + ' ' + columns[i] + ": " + complaint};
        object[columns[i]] = *atom;
    }
    return {};
}

// All that the cluster holds of a row.
Result appendWhole(const Table& table, const SharedRow& row, const SharedCells& cells, Json& object) {
    object = Json::object();
    if (!table.singleRow())
        object[idColumn] = row.id;
    return appendCells(table, row, cells, nullptr, object);
}

Json columnsOf(const Table& table) {
    Json columns = Json(table.sharedColumns());
    if (!table.singleRow())
        columns.push_back(idColumn);
    return columns;
}

Json whereIs(const SharedRow& row) {
    return Json::array({equals("_uuid", uuid(row.uuid))});
}

// The row is as it was.
Result appendWait(const Table& table, const SharedRow& row, SharedOperations& operations) {
    Json before;
    if (Result result = appendWhole(table, row, row.cells, before); !result.ok())
        return result;
    operations.add(waitFor(table.name, whereIs(row), columnsOf(table), Json::array({std::move(before)})),
                   {code::conflict, nameOf(table, row.id)});
    return {};
}

// The rows of the table are those that there were. One without a name is known here alone.
Result appendWait(const Schema& schema, std::size_t index, const std::vector<SharedRow>& rows,
                  const UnheldRows& unheld, SharedOperations& operations) {
    const Table& table = schema.tables()[index];
    Json before = Json::array();
    for (const SharedRow& row : rows) {
        if (row.uuid.empty() || unheld.count(row.uuid) != 0)
            continue;
        Json object;
        if (Result result = appendWhole(table, row, row.cells, object); !result.ok())
            return result;
        before.push_back(std::move(object));
    }
    Json held = Json::array();
    for (const auto& [name, of] : unheld)
        if (of == index)
            held.push_back(Json::array({"_uuid", "!=", uuid(name)}));
    operations.add(waitFor(table.name, std::move(held), columnsOf(table), std::move(before)),
                   {code::conflict, table.name});
    return {};
}

Result appendInsert(const Table& table, const SharedRow& row, const SharedCells& cells,
                    SharedOperations& operations) {
    Json object;
    if (Result result = appendWhole(table, row, cells, object); !result.ok())
        return result;
    operations.add(insertInto(table.name, std::move(object)), {code::duplicateId, nameOf(table, row.id)});
    return {};
}

Result appendUpdate(const Table& table, const SharedChange::Row& change, SharedOperations& operations) {
    Json object = Json::object();
    if (Result result = appendCells(table, change.row, *change.after, &change.row.cells, object);
        !result.ok())
        return result;
    operations.add({{"op", "update"}, {"table", table.name}, {"where", whereIs(change.row)}, {"row", object}},
                   {code::conflict, nameOf(table, change.row.id)});
    return {};
}

// The row of a single-row table that the cluster lacks, its schema may be newer than its rows.
bool isMissing(const SharedChange::Row& change) {
    return change.isNew || change.row.uuid.empty();
}

Result appendWrite(const Table& table, const SharedChange::Row& change, SharedOperations& operations) {
    if (isMissing(change))
        return change.after ? appendInsert(table, change.row, *change.after, operations) : Result();
    if (!change.after) {
        operations.add(removeFrom(table.name, whereIs(change.row)),
                       {code::conflict, nameOf(table, change.row.id)});
        return {};
    }
    return *change.after == change.row.cells ? Result() : appendUpdate(table, change, operations);
}

} // namespace

void SharedOperations::add(Json operation, Result failed) {
    list.push_back(std::move(operation));
    failures.push_back(std::move(failed));
}

Result appendChange(const Schema& schema, const SharedChange& change, const UnheldRows& unheld,
                    SharedOperations& operations) {
    bool inserts = false;
    for (const auto& [table, rows] : change.tables)
        if (Result result = appendWait(schema, table, rows, unheld, operations); !result.ok())
            return result;
    for (const SharedChange::Row& row : change.rows)
        if (!isMissing(row) && unheld.count(row.row.uuid) == 0)
            if (Result result = appendWait(schema.tables()[row.row.table], row.row, operations); !result.ok())
                return result;
    for (const SharedChange::Row& row : change.rows) {
        inserts = inserts || isMissing(row);
        if (Result result = appendWrite(schema.tables()[row.row.table], row, operations); !result.ok())
            return result;
    }
    operations.failure = inserts ? Result(code::duplicateId, "another device has inserted it meanwhile")
                                 : Result(code::conflict);
    return {};
}

Result appendSeed(const Schema& schema, const std::vector<SharedRow>& rows, const std::string& device,
                  SharedOperations& operations) {
    const Result late(code::conflict, "another device was faster");
    operations.add(waitFor("Cluster", Json::array(), Json::array({"SeededBy"}), Json::array()), late);
    operations.add(insertInto("Cluster", {{"SchemaVersion", 1}, {"SeededBy", device}}), late);
    for (const SharedRow& row : rows)
        if (Result result = appendInsert(schema.tables()[row.table], row, row.cells, operations);
            !result.ok())
            return result;
    operations.failure = late;
    return {};
}

Json equals(const char* column, Json value) {
    return Json::array({column, "==", std::move(value)});
}

Json waitFor(const std::string& table, Json where, Json columns, Json rows) {
    return {{"op", "wait"},
            {"table", table},
            {"where", std::move(where)},
            {"until", "=="},
            {"columns", std::move(columns)},
            {"rows", std::move(rows)},
            {"timeout", 0}};
}

Json insertInto(const std::string& table, Json row) {
    return {{"op", "insert"}, {"table", table}, {"row", std::move(row)}};
}

Json removeFrom(const std::string& table, Json where) {
    return {{"op", "delete"}, {"table", table}, {"where", std::move(where)}};
}

} // namespace store
