#include "store/storage/tablewriter.h"

#include "orv/error.h"
#include "store/storage/cells.h"
#include "store/storage/rowcheck.h"
#include "store/storage/valuecheck.h"

#include <new>

namespace store {

namespace code = velta::protocol::code;
using Result = TableWriter::Result;

TableWriter::TableWriter(const Schema& schema, Connection& writer, TableReader& lastCommit, TableSizes& sizes,
                         Safekeeping& safekeeping)
    : writer_(writer),
      reader_(schema, writer),
      lastCommit_(lastCommit),
      changes_(reader_, lastCommit),
      sizes_(sizes),
      safekeeping_(safekeeping),
      begin_(writer, "BEGIN IMMEDIATE"),
      commit_(writer, "COMMIT"),
      rollBack_(writer, "ROLLBACK") {}

Result TableWriter::mayInsert(ConnectedTable& table, const velta::ValueList& values) {
    if (Result result = checkKinds(reader_, table, std::nullopt, values); !result.ok())
        return result;
    return mayGrow(table, sizeOfNew(table.description, values));
}

Result TableWriter::insert(ConnectedTable& table, std::int64_t rowId, const velta::ValueList& values) {
    const std::int64_t bytes = sizeOfNew(table.description, values);
    changes_.note(table, rowId);
    Statement::Run run(table.statements.insert());
    bindCells(run, table.description, values);
    run.bind(static_cast<int>(*table.description.indexOf(idColumn)) + 1, rowId);
    if (Result result = write(run); !result.ok())
        return result;
    changes_.settle(table, rowId, true);
    sizes_.add(table.index, bytes);
    return {};
}

Result TableWriter::update(ConnectedTable& table, std::int64_t rowId, const velta::ValueList& values) {
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

Result TableWriter::remove(ConnectedTable& table, std::int64_t rowId) {
    std::int64_t bytes = 0;
    if (Result result = sizeOf(reader_, table, rowId, bytes); !result.ok())
        return result;
    changes_.note(table, rowId);
    Statement::Run run(table.statements.remove());
    run.bind(1, rowId);
    if (Result result = write(run); !result.ok())
        return result;
    changes_.settle(table, rowId, true);
    sizes_.add(table.index, -bytes);
    return {};
}

Result TableWriter::writeOther(Statement::Run& run) {
    wroteOther_ = true;
    return write(run);
}

Result TableWriter::exists(ConnectedTable& table, std::int64_t rowId, bool& there) {
    Statement::Run run(table.statements.byRowId());
    run.bind(1, rowId);
    const int step = run.step();
    there = step == SQLITE_ROW;
    return reader_.resultOf(step);
}

Result TableWriter::mayGrow(const ConnectedTable& table, std::int64_t bytes) const {
    if (sizes_.mayGrow(table.index, bytes))
        return {};
    return {code::tooLarge,
            table.description.name + ": a table holds at most " + sizes_.limitText() + " of cells"};
}

Result TableWriter::begin() {
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

Result TableWriter::standing() {
    if (failure_.ok() && writing_ && generation_ != writer_.generation())
        failure_ = {code::storageFailed, "the database was opened anew meanwhile"};
    return failure_;
}

Result TableWriter::write(Statement::Run& run) {
    Result result = reader_.resultOf(run.step());
    // After some errors SQLite rolls back the whole transaction by itself.
    if (!result.ok() && !writer_.inTransaction())
        failure_ = result;
    return result;
}

Result TableWriter::commit(velta::NameList& changed) {
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

Result TableWriter::commitChanges(velta::NameList& changed) {
    if (Result result = standing(); !result.ok() || !writing_)
        return result;
    if (Result result = changes_.addChangedTables(changed); !result.ok() || (changed.empty() && !wroteOther_))
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

Result TableWriter::committed() noexcept {
    sizes_.keep();
    return safekeeping_.afterCommit();
}

Result TableWriter::notCommitted(int step) noexcept {
    Result failure(code::outOfMemory);
    try {
        failure = reader_.resultOf(step);
    } catch (const std::bad_alloc&) {
        // then outOfMemory is the failure
    }
    rollBack();
    return safekeeping_.afterFailedCommit(step, failure);
}

void TableWriter::rollBack() noexcept {
    if (writer_.inTransaction()) {
        Statement::Run run(rollBack_); // prepared when the transaction began
        (void)run.step();              // has no error that leaves the transaction open
    }
    writing_ = false;
    wroteOther_ = false;
    failure_ = {};
    changes_.forget();
    sizes_.forget();
}

} // namespace store
