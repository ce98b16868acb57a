#include "fuzz/server/tables.h"

#include "fuzz/input.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>

namespace fuzz {

using velta::Value;
using velta::protocol::Request;
using velta::protocol::RequestKind;
namespace code = velta::protocol::code;

namespace {

constexpr std::size_t textLimit = 4096;

// The number that a key of a numeric column means: digits with or without a minus, nothing else.
std::optional<std::int64_t> numberOf(const std::string& key) {
    const bool negative = !key.empty() && key[0] == '-';
    if (key.size() == std::size_t{negative} ||
        key.find_first_not_of("0123456789", negative ? 1 : 0) != std::string::npos)
        return std::nullopt;
    errno = 0;
    const std::int64_t number = std::strtoll(key.c_str(), nullptr, 10);
    return errno == 0 ? std::optional(number) : std::nullopt;
}

bool holds(const Value& value, const std::string& key) {
    return value.type() == Value::Text ? value.getText() == key : numberOf(value.getText()) == numberOf(key);
}

bool fits(const Value& column, const Value& value) {
    if (value.type() != column.type())
        return false;
    if (value.type() == Value::Text)
        return value.getText().size() <= textLimit && value.getText().find('\0') == std::string::npos;
    return value.type() != Value::Switch || value.getInteger() == 0 || value.getInteger() == 1;
}

Row rowOf(const velta::ValueList& values) {
    Row row;
    for (const velta::ValueList::Cell& cell : values)
        row.push_back(cell.second);
    return row;
}

std::shared_ptr<const Shape> shapeOf(const store::Table& table) {
    Shape shape;
    shape.singleRow = table.singleRow();
    for (const store::Column& column : table.columns) {
        shape.columns.push_back(column.name);
        shape.defaults.push_back(column.name == store::idColumn ? integerValue(0) : column.defaultValue);
    }
    return std::make_shared<const Shape>(shape);
}

bool failedWith(const Answer& answer, int code) {
    return answer.reply.kind == velta::protocol::ReplyKind::Failed && answer.reply.result.code() == code;
}

using RowPointers = std::vector<std::shared_ptr<const Row>>;

bool isRows(const Answer& answer, const Table& table, const RowPointers& rows) {
    if (answer.reply.kind != velta::protocol::ReplyKind::Rows ||
        answer.reply.rows.columns != table.shape->columns || answer.reply.rows.totalRows != rows.size() ||
        answer.rows.size() != rows.size())
        return false;
    for (std::size_t i = 0; i < rows.size(); ++i)
        if (rowOf(answer.rows[i]) != *rows[i])
            return false;
    return true;
}

void writeCells(const Table& table, std::string& cells) {
    velta::protocol::Writer writer(cells);
    for (const auto& [id, row] : table.rows)
        for (const Value& value : *row)
            writer.value(value);
}

RowPointers allRows(const Table& table) {
    RowPointers result;
    for (const auto& [id, row] : table.rows)
        result.push_back(row);
    return result;
}

bool insert(Table& table, const velta::ValueList& values, std::int64_t id) {
    const std::int64_t next = table.rows.empty() ? 1 : table.rows.rbegin()->first + 1;
    const std::int64_t wanted = values.hasValue("Id") ? values.getValue("Id").getInteger() : next;
    return !table.shape->singleRow && wanted == id && id >= 1 && table.addRow(id) &&
           table.setCells(id, values);
}

} // namespace

std::optional<std::size_t> Table::find(const std::string& column) const {
    const auto found = std::find(shape->columns.begin(), shape->columns.end(), column);
    return found == shape->columns.end() ? std::nullopt
                                         : std::optional<std::size_t>(found - shape->columns.begin());
}

std::optional<std::int64_t> Table::rowWith(const std::string& column, const std::string& key) const {
    const std::optional<std::size_t> index = find(column);
    if (!index || (shape->defaults[*index].type() != Value::Text && !numberOf(key)))
        return std::nullopt;
    for (const auto& [id, row] : rows)
        if (holds((*row)[*index], key))
            return id;
    return std::nullopt;
}

bool Table::differsFrom(const Table& other) const {
    return !std::equal(rows.begin(), rows.end(), other.rows.begin(), other.rows.end(),
                       [](const auto& a, const auto& b) {
                           return a.first == b.first && (a.second == b.second || *a.second == *b.second);
                       });
}

bool Table::setCells(std::int64_t id, const velta::ValueList& values) {
    Row row = *rows.at(id);
    for (const auto& [name, value] : values) {
        const std::optional<std::size_t> index = find(name);
        if (!index || !fits(shape->defaults[*index], value))
            return false;
        row[*index] = value;
    }
    rows[id] = std::make_shared<const Row>(std::move(row));
    return true;
}

bool Table::addRow(std::int64_t id) {
    Row row = shape->defaults;
    if (const std::optional<std::size_t> index = find("Id"))
        row[*index].setInteger(static_cast<int>(id));
    return rows.emplace(id, std::make_shared<const Row>(std::move(row))).second;
}

Version makeVersion(const Tables& tables) {
    Commit commit{tables, {}};
    for (const auto& [name, table] : tables)
        writeCells(table, commit.cells);
    return std::make_shared<const Commit>(std::move(commit));
}

Tables committedTables(store::Database& database) {
    Tables tables;
    for (const store::Table& description : database.schema().tables()) {
        Table& table = tables[description.name];
        table.shape = shapeOf(description);
        for (const velta::ValueList& row : tableOf(database, description.name))
            table.rows[table.shape->singleRow ? 0 : row.getValue("Id").getInteger()] =
                std::make_shared<const Row>(rowOf(row));
    }
    return tables;
}

std::string cellsOf(store::Database& database) {
    std::map<std::string, std::string> tables;
    for (const store::Table& table : database.schema().tables()) {
        store::Rows rows;
        bool complete = false;
        require(
            database.readSmall(table.name, store::Database::View::LastCommit, SIZE_MAX, rows, complete).ok(),
            "a table can be read");
        tables[table.name] = std::move(rows.cells);
    }
    std::string cells;
    for (const auto& [name, ofTable] : tables)
        cells += ofTable;
    return cells;
}

void restore(store::Database& database, const Tables& tables) {
    std::uint32_t unused = 0;
    velta::NameList changed;
    store::Transaction& transaction = database.transaction();
    for (const auto& [name, table] : tables) {
        for (const velta::ValueList& row : tableOf(database, name))
            require(table.shape->singleRow ||
                        transaction.remove(name, "Id", row.getValue("Id").getText()).ok(),
                    "a row can be removed");
        for (const auto& [id, row] : table.rows) {
            velta::ValueList values;
            for (std::size_t i = 0; i < row->size(); ++i)
                values.add(table.shape->columns[i], (*row)[i]);
            require((table.shape->singleRow ? transaction.writeSingle(name, 0, values)
                                            : transaction.insert(name, values, unused))
                        .ok(),
                    "a row can be written");
        }
    }
    require(transaction.commit(changed).ok(), "a commit succeeds");
}

bool answers(const Tables& tables, const Request& request, const Answer& answer) {
    const auto found = tables.find(request.table);
    if (found == tables.end())
        return failedWith(answer, code::unknownTable);
    const Table& table = found->second;
    const RowPointers rows = allRows(table);
    if (request.kind == RequestKind::ReadTable)
        return isRows(answer, table, rows);
    if (request.kind == RequestKind::ReadRow)
        return request.number < rows.size() ? isRows(answer, table, {rows[request.number]})
                                            : failedWith(answer, code::noSuchRow);
    if (!table.hasColumn(request.keyColumn))
        return failedWith(answer, code::unknownColumn);
    const std::optional<std::int64_t> id = table.rowWith(request.keyColumn, request.key);
    return id ? isRows(answer, table, {table.rows.at(*id)}) : failedWith(answer, code::noSuchRow);
}

bool write(Tables& tables, const Request& request, std::uint32_t number) {
    const auto found = tables.find(request.table);
    if (found == tables.end())
        return false;
    Table& table = found->second;
    if (request.kind == RequestKind::WriteSingle)
        return table.shape->singleRow && request.number == 0 && table.setCells(0, request.values);
    if (request.kind == RequestKind::Insert)
        return insert(table, request.values, number);
    const std::optional<std::int64_t> id = table.rowWith(request.keyColumn, request.key);
    if (!id)
        return false;
    if (request.kind == RequestKind::Remove)
        return !table.shape->singleRow && table.rows.erase(*id) == 1;
    return !request.values.hasValue("Id") && table.setCells(*id, request.values);
}

} // namespace fuzz
