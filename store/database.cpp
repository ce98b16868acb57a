#include "store/database.h"

#include "store/databaseformat.h"
#include "store/rowreading.h"
#include "store/valuecheck.h"

#include <limits>

namespace store {

namespace code = velta::protocol::code;
using Result = Database::Result;

namespace {

constexpr int openFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX;
constexpr std::int64_t singleRowId = 1;

std::string named(const Table& table, const std::string& row) {
    return table.name + ' ' + row;
}

} // namespace

Database::Database(Schema schema, const std::string& path)
    : schema_(std::move(schema)),
      file_(path),
      writer_(file_.path(), file_.inMemory() ? openFlags | SQLITE_OPEN_CREATE : openFlags),
      reader_(file_.path(), openFlags),
      begin_(writer_.handle(), "BEGIN IMMEDIATE"),
      commit_(writer_.handle(), "COMMIT"),
      rollBack_(writer_.handle(), "ROLLBACK") {
    prepareDatabase(writer_, schema_, file_.name());
    (void)reader_.number("SELECT count(*) FROM sqlite_schema"); // opens its files, while they have a name
    file_.dropName();
    for (const Table& table : schema_.tables()) {
        entries_.emplace_back(table, entries_.size(), writer_.handle(), reader_.handle());
        byName_.emplace(table.name, &entries_.back());
    }
}

const Table* Database::table(const std::string& name) const {
    const auto found = byName_.find(name);
    return found == byName_.end() ? nullptr : &found->second->table;
}

sqlite3* Database::connection(View view) const {
    return view == View::LastCommit ? reader_.handle() : writer_.handle();
}

Result Database::find(const std::string& table, Entry*& entry) {
    const auto found = byName_.find(table);
    if (found == byName_.end())
        return {code::unknownTable, shown(table)};
    entry = found->second;
    return {};
}

Result Database::findRow(Entry& entry, const std::string& keyColumn, const std::string& key, View view,
                         std::int64_t& rowId) {
    const std::optional<std::size_t> column = entry.table.indexOf(keyColumn);
    if (!column)
        return {code::unknownColumn, entry.table.name + '.' + shown(keyColumn)};
    const Result missing(code::noSuchRow, named(entry.table, "with " + keyColumn + " \"" + shown(key) + '"'));
    Statement::Run run(entry.statements(view).find(*column));
    if (entry.table.columns[*column].type == velta::Value::Text) {
        run.bind(1, key);
    } else {
        const std::optional<std::int64_t> number = wholeNumber(key);
        if (!number)
            return missing;
        run.bind(1, *number);
    }
    const int step = run.step();
    if (step == SQLITE_DONE)
        return missing;
    rowId = run.number(0);
    return resultOf(step, connection(view));
}

Result Database::readTable(const std::string& table, View view, Rows& rows) {
    Entry* entry = nullptr;
    if (Result result = find(table, entry); !result.ok())
        return result;
    Statement::Run run(entry->statements(view).all());
    RowCollector collector(entry->table, rows);
    int step = run.step();
    for (; step == SQLITE_ROW; step = run.step())
        if (!collector.add(run))
            return {code::tooLarge, table};
    return resultOf(step, connection(view));
}

Result Database::readOne(Entry& entry, Statement& statement, std::int64_t parameter, View view,
                         const std::string& row, Rows& rows) {
    Statement::Run run(statement);
    run.bind(1, parameter);
    const int step = run.step();
    if (step == SQLITE_DONE)
        return {code::noSuchRow, named(entry.table, row)};
    if (step != SQLITE_ROW)
        return resultOf(step, connection(view));
    RowCollector collector(entry.table, rows);
    return collector.add(run) ? Result() : Result(code::tooLarge, named(entry.table, row));
}

Result Database::readRow(const std::string& table, std::uint32_t index, View view, Rows& rows) {
    Entry* entry = nullptr;
    if (Result result = find(table, entry); !result.ok())
        return result;
    return readOne(*entry, entry->statements(view).byIndex(), index, view, "at " + std::to_string(index),
                   rows);
}

Result Database::readKey(const std::string& table, const std::string& keyColumn, const std::string& key,
                         View view, Rows& rows) {
    Entry* entry = nullptr;
    if (Result result = find(table, entry); !result.ok())
        return result;
    std::int64_t rowId = 0;
    if (Result result = findRow(*entry, keyColumn, key, view, rowId); !result.ok())
        return result;
    return readOne(*entry, entry->statements(view).byRowId(), rowId, view, "with that key", rows);
}

Result Database::writeSingle(const std::string& table, std::uint32_t row, const velta::ValueList& values) {
    Entry* entry = nullptr;
    if (Result result = find(table, entry); !result.ok())
        return result;
    if (!entry->table.singleRow())
        return {code::notSingleRow, table};
    if (row != 0)
        return {code::noSuchRow, named(entry->table, "at " + std::to_string(row))};
    if (Result result = checkCells(entry->table, values, Id::Fixed); !result.ok())
        return result;
    return writeCells(*entry, singleRowId, values);
}

Result Database::update(const std::string& table, const std::string& keyColumn, const std::string& key,
                        const velta::ValueList& values) {
    Entry* entry = nullptr;
    if (Result result = find(table, entry); !result.ok())
        return result;
    if (Result result = checkCells(entry->table, values, Id::Fixed); !result.ok())
        return result;
    std::int64_t rowId = 0;
    if (Result result = findRow(*entry, keyColumn, key, View::OpenTransaction, rowId); !result.ok())
        return result;
    return writeCells(*entry, rowId, values);
}

Result Database::insert(const std::string& table, const velta::ValueList& values, std::uint32_t& id) {
    Entry* entry = nullptr;
    if (Result result = find(table, entry); !result.ok())
        return result;
    if (entry->table.singleRow())
        return {code::singleRow, table + " takes no further row"};
    if (Result result = checkCells(entry->table, values, Id::Given); !result.ok())
        return result;
    if (Result result = beginWriting(); !result.ok())
        return result;
    std::int64_t rowId = 0;
    if (Result result = idFor(*entry, values, rowId); !result.ok())
        return result;
    Statement::Run run(entry->writing.insert());
    bindCells(run, entry->table, values);
    run.bind(static_cast<int>(*entry->table.indexOf(idColumn)) + 1, rowId);
    if (Result result = write(run); !result.ok())
        return result;
    touched_.add(entry->index, rowId);
    id = static_cast<std::uint32_t>(rowId);
    return {};
}

Result Database::remove(const std::string& table, const std::string& keyColumn, const std::string& key) {
    Entry* entry = nullptr;
    if (Result result = find(table, entry); !result.ok())
        return result;
    if (entry->table.singleRow())
        return {code::singleRow, table + " keeps its row"};
    if (Result result = beginWriting(); !result.ok())
        return result;
    std::int64_t rowId = 0;
    if (Result result = findRow(*entry, keyColumn, key, View::OpenTransaction, rowId); !result.ok())
        return result;
    Statement::Run run(entry->writing.remove());
    run.bind(1, rowId);
    if (Result result = write(run); !result.ok())
        return result;
    touched_.add(entry->index, rowId);
    return {};
}

Result Database::idFor(Entry& entry, const velta::ValueList& values, std::int64_t& id) {
    if (!values.hasValue(idColumn))
        return nextId(entry, id);
    id = values.getValue(idColumn).getInteger();
    bool there = false;
    if (Result result = exists(entry, id, there); !result.ok())
        return result;
    return there ? Result(code::duplicateId, named(entry.table, std::to_string(id))) : Result();
}

Result Database::nextId(Entry& entry, std::int64_t& id) {
    Statement::Run run(entry.writing.highestRowId());
    const int step = run.step();
    if (step != SQLITE_ROW)
        return resultOf(step, writer_.handle());
    const std::int64_t highest = run.number(0);
    if (highest >= std::numeric_limits<std::int32_t>::max())
        return {code::tooLarge, entry.table.name + " has no further Id"};
    id = highest < 0 ? 1 : highest + 1;
    return {};
}

Result Database::exists(Entry& entry, std::int64_t rowId, bool& there) {
    Statement::Run run(entry.writing.byRowId());
    run.bind(1, rowId);
    const int step = run.step();
    there = step == SQLITE_ROW;
    return resultOf(step, writer_.handle());
}

Result Database::writeCells(Entry& entry, std::int64_t rowId, const velta::ValueList& values) {
    if (values.empty())
        return {};
    if (Result result = beginWriting(); !result.ok())
        return result;
    Statement::Run run(entry.writing.update());
    bindCells(run, entry.table, values);
    run.bind(static_cast<int>(entry.table.columns.size()) + 1, rowId);
    if (Result result = write(run); !result.ok())
        return result;
    if (sqlite3_changes(writer_.handle()) == 0)
        return {code::noSuchRow, entry.table.name};
    touched_.add(entry.index, rowId);
    return {};
}

} // namespace store
