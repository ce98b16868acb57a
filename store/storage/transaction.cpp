#include "store/storage/transaction.h"

#include "store/storage/cells.h"
#include "store/storage/valuecheck.h"

#include <limits>

namespace store {

namespace code = velta::protocol::code;
using Result = Transaction::Result;

namespace {

constexpr std::int64_t singleRowId = 1;

} // namespace

Transaction::Transaction(const Schema& schema, Connection& writer, TableReader& lastCommit,
                         const DatabaseFile& file)
    : writer_(writer),
      reader_(schema, writer.handle()),
      lastCommit_(lastCommit),
      file_(file),
      begin_(writer.handle(), "BEGIN IMMEDIATE"),
      commit_(writer.handle(), "COMMIT"),
      rollBack_(writer.handle(), "ROLLBACK") {}

Result Transaction::writeSingle(const std::string& table, std::uint32_t row, const velta::ValueList& values) {
    ConnectedTable* found = nullptr;
    if (Result result = reader_.find(table, found); !result.ok())
        return result;
    if (!found->description.singleRow())
        return {code::notSingleRow, table};
    if (row != 0)
        return {code::noSuchRow, table + " at " + std::to_string(row)};
    if (Result result = checkCells(found->description, values, Id::Fixed); !result.ok())
        return result;
    return writeCells(*found, singleRowId, values);
}

Result Transaction::update(const std::string& table, const std::string& keyColumn, const std::string& key,
                           const velta::ValueList& values) {
    ConnectedTable* found = nullptr;
    if (Result result = reader_.find(table, found); !result.ok())
        return result;
    if (Result result = checkCells(found->description, values, Id::Fixed); !result.ok())
        return result;
    std::int64_t rowId = 0;
    if (Result result = reader_.findRow(*found, keyColumn, key, rowId); !result.ok())
        return result;
    return writeCells(*found, rowId, values);
}

Result Transaction::insert(const std::string& table, const velta::ValueList& values, std::uint32_t& id) {
    ConnectedTable* found = nullptr;
    if (Result result = reader_.find(table, found); !result.ok())
        return result;
    if (found->description.singleRow())
        return {code::singleRow, table + " takes no further row"};
    if (Result result = checkCells(found->description, values, Id::Given); !result.ok())
        return result;
    if (Result result = begin(); !result.ok())
        return result;
    std::int64_t rowId = 0;
    if (Result result = idFor(*found, values, rowId); !result.ok())
        return result;
    Statement::Run run(found->statements.insert());
    bindCells(run, found->description, values);
    run.bind(static_cast<int>(*found->description.indexOf(idColumn)) + 1, rowId);
    if (Result result = write(run); !result.ok())
        return result;
    touched_.add(found->index, rowId);
    id = static_cast<std::uint32_t>(rowId);
    return {};
}

Result Transaction::remove(const std::string& table, const std::string& keyColumn, const std::string& key) {
    ConnectedTable* found = nullptr;
    if (Result result = reader_.find(table, found); !result.ok())
        return result;
    if (found->description.singleRow())
        return {code::singleRow, table + " keeps its row"};
    if (Result result = begin(); !result.ok())
        return result;
    std::int64_t rowId = 0;
    if (Result result = reader_.findRow(*found, keyColumn, key, rowId); !result.ok())
        return result;
    Statement::Run run(found->statements.remove());
    run.bind(1, rowId);
    if (Result result = write(run); !result.ok())
        return result;
    touched_.add(found->index, rowId);
    return {};
}

Result Transaction::idFor(ConnectedTable& table, const velta::ValueList& values, std::int64_t& id) {
    if (!values.hasValue(idColumn))
        return nextId(table, id);
    id = values.getValue(idColumn).getInteger();
    bool there = false;
    if (Result result = exists(table, id, there); !result.ok())
        return result;
    return there ? Result(code::duplicateId, table.description.name + ' ' + std::to_string(id)) : Result();
}

Result Transaction::nextId(ConnectedTable& table, std::int64_t& id) {
    Statement::Run run(table.statements.highestRowId());
    const int step = run.step();
    if (step != SQLITE_ROW)
        return reader_.resultOf(step);
    const std::int64_t highest = run.number(0);
    if (highest >= std::numeric_limits<std::int32_t>::max())
        return {code::tooLarge, table.description.name + " has no further Id"};
    id = highest < 0 ? 1 : highest + 1;
    return {};
}

Result Transaction::exists(ConnectedTable& table, std::int64_t rowId, bool& there) {
    Statement::Run run(table.statements.byRowId());
    run.bind(1, rowId);
    const int step = run.step();
    there = step == SQLITE_ROW;
    return reader_.resultOf(step);
}

Result Transaction::writeCells(ConnectedTable& table, std::int64_t rowId, const velta::ValueList& values) {
    if (values.empty())
        return {};
    if (Result result = begin(); !result.ok())
        return result;
    Statement::Run run(table.statements.update());
    bindCells(run, table.description, values);
    run.bind(static_cast<int>(table.description.columns.size()) + 1, rowId);
    if (Result result = write(run); !result.ok())
        return result;
    if (sqlite3_changes(writer_.handle()) == 0)
        return {code::noSuchRow, table.description.name};
    touched_.add(table.index, rowId);
    return {};
}

Result Transaction::begin() {
    if (!failure_.ok() || writing_)
        return failure_;
    Statement::Run run(begin_);
    const int step = run.step();
    writing_ = step == SQLITE_DONE;
    return reader_.resultOf(step);
}

Result Transaction::write(Statement::Run& run) {
    Result result = reader_.resultOf(run.step());
    // SQLite rolls the whole transaction back by itself after some errors.
    if (!result.ok() && !writer_.inTransaction())
        failure_ = result;
    return result;
}

Result Transaction::commit(velta::NameList& changed) {
    changed.clear();
    Result result = failure_;
    if (result.ok() && writing_)
        result = changedTables(changed);
    if (result.ok() && !changed.empty())
        result = commitWritten();
    if (!result.ok())
        changed.clear();
    rollBack(); // ends what did not commit
    return result;
}

Result Transaction::commitWritten() {
    if (!file_.isInPlace()) // it would be kept where no start looks for it
        return {code::storageFailed, "the database file was removed, moved or replaced: " + file_.path()};
    Statement::Run run(commit_);
    return reader_.resultOf(run.step());
}

void Transaction::rollBack() {
    if (writer_.inTransaction()) {
        Statement::Run run(rollBack_);
        (void)run.step(); // has no error that leaves the transaction open
    }
    writing_ = false;
    failure_ = {};
    touched_.clear();
}

Result Transaction::changedTables(velta::NameList& changed) {
    for (const auto& [table, touched] : touched_.tables()) {
        bool isChanged = false;
        if (Result result = tableChanged(table, touched, isChanged); !result.ok())
            return result;
        if (isChanged)
            changed.push_back(reader_.at(table).description.name);
    }
    return {};
}

Result Transaction::tableChanged(std::size_t table, const TouchedRows::OfTable& touched, bool& changed) {
    changed = touched.tooMany;
    for (const std::int64_t rowId : touched.rowIds) {
        Result result = differs(table, rowId, changed);
        if (!result.ok() || changed)
            return result;
    }
    return {};
}

// Compares the row as the transaction sees it with the row of the last commit.
Result Transaction::differs(std::size_t table, std::int64_t rowId, bool& different) {
    Statement::Run now(reader_.at(table).statements.byRowId());
    Statement::Run before(lastCommit_.at(table).statements.byRowId());
    now.bind(1, rowId);
    before.bind(1, rowId);
    const int nowStep = now.step();
    const int beforeStep = before.step();
    if (Result result = reader_.resultOf(nowStep); !result.ok())
        return result;
    if (Result result = lastCommit_.resultOf(beforeStep); !result.ok())
        return result;
    different = nowStep != beforeStep;
    if (different || nowStep == SQLITE_DONE)
        return {};
    const std::size_t columns = reader_.at(table).description.columns.size();
    for (std::size_t i = 0; i < columns && !different; ++i)
        different = now.text(static_cast<int>(i)) != before.text(static_cast<int>(i));
    return {};
}

} // namespace store
