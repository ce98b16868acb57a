#include "store/storage/transaction.h"

#include "orv/error.h"
#include "store/storage/cells.h"
#include "store/storage/rowcheck.h"
#include "store/storage/valuecheck.h"

#include <limits>
#include <new>

namespace store {

namespace code = velta::protocol::code;
using Result = Transaction::Result;

namespace {

constexpr std::int64_t singleRowId = 1;

} // namespace

Transaction::Transaction(const Schema& schema, Connection& writer, TableReader& lastCommit, TableSizes& sizes,
                         Safekeeping& safekeeping)
    : writer_(writer),
      reader_(schema, writer),
      changes_(reader_, lastCommit),
      sizes_(sizes),
      safekeeping_(safekeeping),
      begin_(writer, "BEGIN IMMEDIATE"),
      commit_(writer, "COMMIT"),
      rollBack_(writer, "ROLLBACK") {}

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
    if (Result result = findRow(*found, keyColumn, key, rowId); !result.ok())
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
    if (Result result = checkKinds(reader_, *found, std::nullopt, values); !result.ok())
        return result;
    const std::int64_t bytes = sizeOfNew(found->description, values);
    if (Result result = mayGrow(*found, bytes); !result.ok())
        return result;
    if (Result result = begin(); !result.ok())
        return result;
    std::int64_t rowId = 0;
    if (Result result = idFor(*found, values, rowId); !result.ok())
        return result;
    changes_.note(*found, rowId);
    Statement::Run run(found->statements.insert());
    bindCells(run, found->description, values);
    run.bind(static_cast<int>(*found->description.indexOf(idColumn)) + 1, rowId);
    if (Result result = write(run); !result.ok())
        return result;
    changes_.settle(*found, rowId, true);
    sizes_.add(found->index, bytes);
    id = static_cast<std::uint32_t>(rowId);
    return {};
}

Result Transaction::remove(const std::string& table, const std::string& keyColumn, const std::string& key) {
    ConnectedTable* found = nullptr;
    if (Result result = reader_.find(table, found); !result.ok())
        return result;
    if (found->description.singleRow())
        return {code::singleRow, table + " keeps its row"};
    std::int64_t rowId = 0;
    if (Result result = findRow(*found, keyColumn, key, rowId); !result.ok())
        return result;
    std::int64_t bytes = 0;
    if (Result result = sizeOf(reader_, *found, rowId, bytes); !result.ok())
        return result;
    changes_.note(*found, rowId);
    Statement::Run run(found->statements.remove());
    run.bind(1, rowId);
    if (Result result = write(run); !result.ok())
        return result;
    changes_.settle(*found, rowId, true);
    sizes_.add(found->index, -bytes);
    return {};
}

// The transaction begins before the search, which would take a lock on the log by itself.
Result Transaction::findRow(ConnectedTable& table, const std::string& keyColumn, const std::string& key,
                            std::int64_t& rowId) {
    if (Result result = begin(); !result.ok())
        return result;
    return reader_.findRow(table, keyColumn, key, rowId);
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
    if (Result result = checkKinds(reader_, table, rowId, values); !result.ok())
        return result;
    std::int64_t bytes = 0;
    if (Result result = growthBy(reader_, table, rowId, values, bytes); !result.ok())
        return result;
    if (Result result = mayGrow(table, bytes); !result.ok())
        return result;
    bool differs = false;
    if (Result result = differsFrom(reader_, table, rowId, values, differs); !result.ok())
        return result;
    changes_.note(table, rowId);
    Statement::Run run(table.statements.update());
    bindCells(run, table.description, values);
    run.bind(static_cast<int>(table.description.columns.size()) + 1, rowId);
    if (Result result = write(run); !result.ok())
        return result;
    if (sqlite3_changes(writer_.handle()) == 0)
        return {code::noSuchRow, table.description.name};
    changes_.settle(table, rowId, differs);
    sizes_.add(table.index, bytes);
    return {};
}

Result Transaction::mayGrow(const ConnectedTable& table, std::int64_t bytes) const {
    if (sizes_.mayGrow(table.index, bytes))
        return {};
    return {code::tooLarge,
            table.description.name + ": a table holds at most " + sizes_.limitText() + " of cells"};
}

Result Transaction::begin() {
    if (Result result = standing(); !result.ok() || writing_)
        return result;
    if (Result result = safekeeping_.beforeWriting(); !result.ok())
        return result;
    for (Statement* const end : {&commit_, &rollBack_}) // so that they can't fail for lack of memory later
        if (const int prepared = end->prepare(); prepared != SQLITE_OK)
            return reader_.resultOf(prepared);
    Statement::Run run(begin_);
    const int step = run.step();
    writing_ = step == SQLITE_DONE;
    generation_ = writer_.generation();
    return reader_.resultOf(step);
}

Result Transaction::standing() {
    if (failure_.ok() && writing_ && generation_ != writer_.generation())
        failure_ = {code::storageFailed, "the database was opened anew meanwhile"};
    return failure_;
}

Result Transaction::write(Statement::Run& run) {
    Result result = reader_.resultOf(run.step());
    // After some errors SQLite rolls back the whole transaction by itself.
    if (!result.ok() && !writer_.inTransaction())
        failure_ = result;
    return result;
}

Result Transaction::commit(velta::NameList& changed) {
    Result result;
    try {
        changed.clear();
        result = commitChanges(changed);
    } catch (const std::bad_alloc&) { // thrown before the commit: after it nothing throws
        result = code::outOfMemory;
    }
    if (!result.ok())
        changed.clear();
    rollBack(); // ends a transaction that did not commit
    return result;
}

Result Transaction::commitChanges(velta::NameList& changed) {
    if (Result result = standing(); !result.ok() || !writing_)
        return result;
    if (Result result = changes_.addChangedTables(changed); !result.ok() || changed.empty())
        return result;
    ORV_ASSERT(writing_); // only writes change tables
    if (Result result = safekeeping_.beforeCommit(changed); !result.ok())
        return result;
    int step = SQLITE_OK;
    {
        Statement::Run run(commit_);
        step = run.step();
    }
    return step == SQLITE_DONE ? committed() : notCommitted(step);
}

Result Transaction::committed() noexcept {
    sizes_.keep();
    return safekeeping_.afterCommit();
}

Result Transaction::notCommitted(int step) noexcept {
    Result failure(code::outOfMemory);
    try {
        failure = reader_.resultOf(step);
    } catch (const std::bad_alloc&) {
        // then outOfMemory is the failure
    }
    rollBack();
    return safekeeping_.afterFailedCommit(step, failure);
}

void Transaction::rollBack() noexcept {
    if (writer_.inTransaction()) {
        Statement::Run run(rollBack_); // prepared when the transaction began
        (void)run.step();              // has no error that leaves the transaction open
    }
    writing_ = false;
    failure_ = {};
    changes_.forget();
    sizes_.forget();
}

} // namespace store
