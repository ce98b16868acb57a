#include "store/storage/changefinder.h"

#include "store/storage/cells.h"
#include "store/storage/sharedtable.h"

#include <algorithm>
#include <utility>

namespace store {

namespace code = velta::protocol::code;
using Result = ChangeFinder::Result;

namespace {

constexpr std::size_t namesInText = 4;

void addOnce(velta::NameList& names, const std::string& name) {
    if (std::find(names.begin(), names.end(), name) == names.end())
        names.push_back(name);
}

// "A.b, A.c are"
std::string subject(const velta::NameList& names) {
    std::string text;
    for (std::size_t i = 0; i < names.size() && i < namesInText; ++i)
        text += (i == 0 ? "" : ", ") + names[i];
    if (names.size() > namesInText)
        text += " and others";
    return text + (names.size() == 1 ? " is" : " are");
}

Result cellsOf(TableReader& reader, std::size_t table, std::int64_t id,
               std::optional<std::vector<velta::Value>>& cells) {
    ConnectedTable& found = reader.at(table);
    Statement::Run run(found.statements.byRowId());
    run.bind(1, id);
    const int step = run.step();
    cells.reset();
    if (step != SQLITE_ROW)
        return reader.resultOf(step);
    cells.emplace();
    for (std::size_t i = 0; i < found.description.columns.size(); ++i)
        cells->push_back(valueIn(found.description.columns[i].type, run, static_cast<int>(i)));
    return {};
}

SharedCells sharedOf(const Table& table, const std::vector<velta::Value>& cells) {
    SharedCells shared;
    for (std::size_t i = 0; i < table.columns.size(); ++i)
        if (table.columns[i].shared)
            shared.push_back(cells[i]);
    return shared;
}

} // namespace

Result ChangeFinder::find(const SharedReads& reads, SharedChange& change) {
    change = {};
    if (Result result = memory_.isThere(isNamed_); !result.ok())
        return result;
    if (Result result = findWritten(change); !result.ok())
        return result;
    if (change.changesNothing()) {
        change = {};
        return {};
    }
    if (!local_.empty())
        return mixed();
    return addRead(reads, change);
}

Result ChangeFinder::mixed() const {
    return {code::mixedChange, subject(shared_) + " shared, " + subject(local_) + " not"};
}

Result ChangeFinder::findWritten(SharedChange& change) {
    for (const auto& [table, touched] : writer_.touched().tables())
        if (Result result = addWritten(writer_.reader().at(table), touched, change); !result.ok())
            return result;
    return {};
}

Result ChangeFinder::addWritten(ConnectedTable& table, const TouchedRows::OfTable& touched,
                                SharedChange& change) {
    const std::string& name = table.description.name;
    if (touched.tooMany && table.description.isShared())
        return {code::tooLarge, name + ": too many rows of a shared table for one transaction"};
    if (touched.tooMany)
        addOnce(local_, name);
    for (const auto& [id, row] : touched.rows)
        if (Result result = addWrittenRow(table, id, change); !result.ok())
            return result;
    return {};
}

Result ChangeFinder::addWrittenRow(ConnectedTable& table, std::int64_t id, SharedChange& change) {
    Row row;
    if (Result result = readRow(table.index, id, row); !result.ok())
        return result;
    if (!row.before && !row.now)
        return {};
    compare(table.description, id, row);
    if (!table.description.isShared())
        return {};
    SharedChange::Row changed;
    changed.row = {table.index, id, {}, {}};
    changed.isNew = !row.before;
    if (row.before)
        changed.row.cells = sharedOf(table.description, *row.before);
    if (row.now)
        changed.after = sharedOf(table.description, *row.now);
    if (Result result = nameRow(changed.row); !result.ok())
        return result;
    found_.emplace(table.index, id);
    change.rows.push_back(std::move(changed));
    return {};
}

Result ChangeFinder::readRow(std::size_t table, std::int64_t id, Row& row) {
    const Result result = cellsOf(writer_.lastCommit(), table, id, row.before);
    return result.ok() ? cellsOf(writer_.reader(), table, id, row.now) : result;
}

// Notes what differs. A row that comes or goes is itself shared; the state of one that goes does not count,
// that of a new one is compared with the defaults.
void ChangeFinder::compare(const Table& table, std::int64_t id, const Row& row) {
    const bool comesOrGoes = !row.before || !row.now;
    if (comesOrGoes)
        addOnce(table.isShared() ? shared_ : local_, table.name + '.' + std::to_string(id));
    if (!row.now)
        return;
    for (std::size_t i = 0; i < table.columns.size(); ++i) {
        const Column& column = table.columns[i];
        if (column.name == idColumn || (column.shared && comesOrGoes))
            continue;
        if ((*row.now)[i] != (row.before ? (*row.before)[i] : column.defaultValue))
            addOnce(column.shared ? shared_ : local_, table.name + '.' + column.name);
    }
}

Result ChangeFinder::addRead(const SharedReads& reads, SharedChange& change) {
    for (const auto& [table, ofTable] : reads.tables())
        if (writer_.reader().at(table).description.isShared())
            if (Result result = addReadRows(table, ofTable, change); !result.ok())
                return result;
    return {};
}

Result ChangeFinder::addReadRows(std::size_t table, SharedReads::OfTable reads, SharedChange& change) {
    for (auto id = reads.ids.begin(); id != reads.ids.end() && !reads.whole; ++id) {
        if (found_.count({table, *id}) != 0)
            continue;
        std::optional<Cells> cells;
        if (Result result = cellsOf(writer_.lastCommit(), table, *id, cells); !result.ok())
            return result;
        if (!cells) { // that there is no such row can only be said of the whole table
            reads.whole = true;
            break;
        }
        SharedChange::Row row;
        row.row = {table, *id, {}, sharedOf(writer_.reader().at(table).description, *cells)};
        row.after = row.row.cells;
        if (Result result = nameRow(row.row); !result.ok())
            return result;
        change.rows.push_back(std::move(row));
    }
    return reads.whole ? addWhole(table, change) : Result();
}

Result ChangeFinder::addWhole(std::size_t table, SharedChange& change) {
    change.tables.emplace_back(table, std::vector<SharedRow>());
    return addSharedRows(writer_.lastCommit(), table, isNamed_ ? &memory_ : nullptr,
                         change.tables.back().second);
}

Result ChangeFinder::nameRow(SharedRow& row) {
    if (!isNamed_)
        return {};
    return memory_.uuidOf(writer_.reader().at(row.table).description.name, row.id, row.uuid);
}

} // namespace store
