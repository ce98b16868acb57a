#include "store/storage/database.h"

#include "store/storage/rowwriter.h"

#include <algorithm>
#include <utility>

namespace store {

namespace code = velta::protocol::code;
using Result = Database::Result;

Database::Database(Schema schema, const std::string& path, DatabaseOptions options)
    : schema_(std::move(schema)),
      options_(std::move(options)),
      file_(path),
      connections_(schema_, file_, options_.limitOfTable),
      lastCommit_(schema_, connections_.lastCommit()),
      safekeeping_(schema_, file_, connections_, options_.now),
      writer_(schema_, connections_.writer(), lastCommit_, connections_.sizes(), safekeeping_),
      memory_(connections_.writer()),
      transaction_(writer_, memory_),
      sharedRows_(schema_, file_, connections_, writer_, memory_) {}

void Database::tidy() {
    safekeeping_.retry();
    if (connections_.snapshots().takeGivenBack())
        connections_.checkpoints().readerEnded();
    connections_.checkpoints().tidy(options_.now());
}

Safekeeping::Clock::time_point Database::nextDeadline() const {
    return std::min(safekeeping_.nextDeadline(), connections_.checkpoints().nextDeadline());
}

void Database::flushLines() {
    safekeeping_.flushLines();
    connections_.checkpoints().flushLines();
}

bool Database::logIsLong() const {
    return connections_.snapshots().anyTaken() && connections_.checkpoints().logIsLong();
}

bool Database::logIsTooLong() const {
    return connections_.snapshots().anyTaken() && connections_.checkpoints().logIsTooLong();
}

const Table* Database::table(const std::string& name) {
    ConnectedTable* found = nullptr;
    return lastCommit_.find(name, found).ok() ? &found->description : nullptr;
}

Result Database::readSmall(const std::string& table, View view, std::size_t most, Rows& rows,
                           bool& complete) {
    ConnectedTable* found = nullptr;
    if (Result result = reader(view).find(table, found); !result.ok())
        return result;
    rows.columns = found->description.columnNames();
    Statement::Run run(found->statements.all());
    int step = run.step();
    for (; step == SQLITE_ROW && rows.cells.size() <= most; step = run.step())
        appendRow(rows, found->description, run);
    complete = step != SQLITE_ROW && rows.cells.size() <= most;
    return reader(view).resultOf(step);
}

Result Database::beginReading(const std::string& table, View view, std::unique_ptr<TableReading>& reading) {
    ConnectedTable* found = nullptr;
    if (view == View::OpenTransaction) {
        if (Result result = transaction_.reader().find(table, found); !result.ok())
            return result;
        reading = std::make_unique<TableReading>(*found, transaction_.reader());
        return reading->begin();
    }
    Snapshots::Lease snapshot(nullptr, Snapshots::GiveBack{nullptr, 0});
    if (Result result = connections_.snapshots().take(snapshot); !result.ok())
        return result;
    if (!safekeeping_.look()) // the snapshot's connection may have opened another log
        return {code::storageFailed, "the database was opened anew meanwhile"};
    if (Result result = snapshot->reader().find(table, found); !result.ok())
        return result;
    reading = std::make_unique<TableReading>(*found, std::move(snapshot));
    return reading->begin();
}

} // namespace store
