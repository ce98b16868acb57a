#include "store/storage/database.h"

#include "store/storage/databaseformat.h"
#include "store/storage/rowwriter.h"

#include <utility>

namespace store {

namespace code = velta::protocol::code;
using Result = Database::Result;

namespace {

constexpr int openFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX;

} // namespace

Database::Database(Schema schema, const std::string& path)
    : schema_(std::move(schema)),
      file_(path),
      writerConnection_(file_.path(), file_.inMemory() ? openFlags | SQLITE_OPEN_CREATE : openFlags),
      readerConnection_(file_.path(), openFlags),
      lastCommit_(schema_, readerConnection_.handle()),
      transaction_(schema_, writerConnection_, lastCommit_, file_),
      snapshots_(file_.path(), schema_) {
    prepareDatabase(writerConnection_, schema_, file_.name());
    readerConnection_.touchFiles();
    if (!file_.inMemory())
        return;
    snapshots_.connectAll();
    file_.dropName();
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
    if (Result result = snapshots_.take(snapshot); !result.ok())
        return result;
    if (Result result = snapshot->reader().find(table, found); !result.ok())
        return result;
    reading = std::make_unique<TableReading>(*found, std::move(snapshot));
    return reading->begin();
}

} // namespace store
