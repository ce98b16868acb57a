// The transaction of the database: its begin, its end, and what it changed.
#include "store/cells.h"
#include "store/database.h"

namespace store {

namespace code = velta::protocol::code;
using Result = Database::Result;

Result Database::beginWriting() {
    if (!failure_.ok() || writing_)
        return failure_;
    Statement::Run run(begin_);
    const int step = run.step();
    writing_ = step == SQLITE_DONE;
    return resultOf(step, writer_.handle());
}

Result Database::write(Statement::Run& run) {
    Result result = resultOf(run.step(), writer_.handle());
    // SQLite rolls the whole transaction back by itself after some errors.
    if (!result.ok() && sqlite3_get_autocommit(writer_.handle()) != 0)
        failure_ = result;
    return result;
}

Result Database::commit(velta::NameList& changed) {
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

Result Database::commitWritten() {
    if (!file_.isInPlace()) // it would be kept where no start looks for it
        return {code::storageFailed, "the database file was removed, moved or replaced: " + file_.path()};
    Statement::Run run(commit_);
    return resultOf(run.step(), writer_.handle());
}

void Database::rollBack() {
    if (sqlite3_get_autocommit(writer_.handle()) == 0) {
        Statement::Run run(rollBack_);
        (void)run.step(); // has no error that leaves the transaction open
    }
    writing_ = false;
    failure_ = {};
    touched_.clear();
}

Result Database::changedTables(velta::NameList& changed) {
    for (const auto& [index, touched] : touched_.tables()) {
        Entry& entry = entries_[index];
        bool isChanged = false;
        if (Result result = tableChanged(entry, touched, isChanged); !result.ok())
            return result;
        if (isChanged)
            changed.push_back(entry.table.name);
    }
    return {};
}

Result Database::tableChanged(Entry& entry, const TouchedRows::OfTable& touched, bool& changed) {
    changed = touched.tooMany;
    for (const std::int64_t rowId : touched.rowIds) {
        Result result = differs(entry, rowId, changed);
        if (!result.ok() || changed)
            return result;
    }
    return {};
}

// Compares the row as the transaction sees it with the row of the last commit.
Result Database::differs(Entry& entry, std::int64_t rowId, bool& different) {
    Statement::Run now(entry.writing.byRowId());
    Statement::Run before(entry.reading.byRowId());
    now.bind(1, rowId);
    before.bind(1, rowId);
    const int nowStep = now.step();
    const int beforeStep = before.step();
    if (Result result = resultOf(nowStep, writer_.handle()); !result.ok())
        return result;
    if (Result result = resultOf(beforeStep, reader_.handle()); !result.ok())
        return result;
    different = nowStep != beforeStep;
    if (different || nowStep == SQLITE_DONE)
        return {};
    for (std::size_t i = 0; i < entry.table.columns.size() && !different; ++i)
        different = now.text(static_cast<int>(i)) != before.text(static_cast<int>(i));
    return {};
}

} // namespace store
