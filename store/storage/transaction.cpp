#include "store/storage/transaction.h"

#include "store/storage/changefinder.h"
#include "store/storage/valuecheck.h"

#include <limits>

namespace store {

namespace code = velta::protocol::code;
using Result = Transaction::Result;

Result Transaction::writeSingle(const std::string& table, std::uint32_t row, const velta::ValueList& values) {
    ConnectedTable* found = nullptr;
    if (Result result = reader().find(table, found); !result.ok())
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
    if (Result result = reader().find(table, found); !result.ok())
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
    if (Result result = mayInsert(table, values, found); !result.ok())
        return result;
    if (Result result = writer_.begin(); !result.ok())
        return result;
    std::int64_t rowId = 0;
    if (Result result = idFor(*found, values, rowId); !result.ok())
        return result;
    if (Result result = writer_.insert(*found, rowId, values); !result.ok())
        return result;
    id = static_cast<std::uint32_t>(rowId);
    return {};
}

Result Transaction::mayInsert(const std::string& table, const velta::ValueList& values) {
    ConnectedTable* found = nullptr;
    return mayInsert(table, values, found);
}

Result Transaction::mayInsert(const std::string& table, const velta::ValueList& values,
                              ConnectedTable*& found) {
    if (Result result = reader().find(table, found); !result.ok())
        return result;
    if (found->description.singleRow())
        return {code::singleRow, table + " takes no further row"};
    if (Result result = checkCells(found->description, values, Id::Given); !result.ok())
        return result;
    return writer_.mayInsert(*found, values);
}

Result Transaction::sharedChange(const SharedReads& reads, SharedChange& change) {
    return ChangeFinder(writer_, memory_).find(reads, change);
}

Result Transaction::remove(const std::string& table, const std::string& keyColumn, const std::string& key) {
    ConnectedTable* found = nullptr;
    if (Result result = reader().find(table, found); !result.ok())
        return result;
    if (found->description.singleRow())
        return {code::singleRow, table + " keeps its row"};
    std::int64_t rowId = 0;
    if (Result result = findRow(*found, keyColumn, key, rowId); !result.ok())
        return result;
    return writer_.remove(*found, rowId);
}

// The transaction begins before the search, which would take a lock on the log by itself.
Result Transaction::findRow(ConnectedTable& table, const std::string& keyColumn, const std::string& key,
                            std::int64_t& rowId) {
    if (Result result = writer_.begin(); !result.ok())
        return result;
    return reader().findRow(table, keyColumn, key, rowId);
}

Result Transaction::idFor(ConnectedTable& table, const velta::ValueList& values, std::int64_t& id) {
    if (!values.hasValue(idColumn))
        return nextId(table, id);
    id = values.getValue(idColumn).getInteger();
    bool there = false;
    if (Result result = writer_.exists(table, id, there); !result.ok())
        return result;
    return there ? Result(code::duplicateId, table.description.name + ' ' + std::to_string(id)) : Result();
}

Result Transaction::nextId(ConnectedTable& table, std::int64_t& id) {
    Statement::Run run(table.statements.highestRowId());
    const int step = run.step();
    if (step != SQLITE_ROW)
        return reader().resultOf(step);
    const std::int64_t highest = run.number(0);
    if (highest >= std::numeric_limits<std::int32_t>::max())
        return {code::tooLarge, table.description.name + " has no further Id"};
    id = highest < 0 ? 1 : highest + 1;
    return {};
}

Result Transaction::writeCells(ConnectedTable& table, std::int64_t rowId, const velta::ValueList& values) {
    if (values.empty())
        return {};
    if (Result result = writer_.begin(); !result.ok())
        return result;
    return writer_.update(table, rowId, values);
}

} // namespace store
