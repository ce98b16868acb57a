#include "support/fakestore.h"

#include <algorithm>
#include <iterator>

namespace fakes {

using velta::NameList;
using velta::Value;
using velta::ValueList;
using velta::protocol::EResultCode;
namespace code = velta::protocol::code;

namespace {

std::string textOf(const ValueList& values) {
    std::string text;
    for (const auto& [name, value] : values)
        text += " " + name + "=" + value.getText() + "(type " + std::to_string(value.type()) + ")";
    return text;
}

bool startsWith(const std::string& line, const std::string& start) {
    return line.compare(0, start.size(), start) == 0;
}

bool onlyReads(const std::string& line) {
    return startsWith(line, "size ") || startsWith(line, "select ") || startsWith(line, "is ");
}

// False for a column that the row does not have.
bool overwrite(ValueList& row, const std::string& column, const Value& value) {
    if (!row.hasValue(column))
        return false;
    ValueList changed;
    for (const auto& [name, old] : row)
        changed.add(name, name == column ? value : old);
    row = changed;
    return true;
}

int overwrite(ValueList* row, const ValueList& values) {
    if (row == nullptr)
        return code::noSuchRow;
    ValueList changed = *row;
    for (const auto& [name, value] : values)
        if (!overwrite(changed, name, value))
            return code::unknownColumn;
    *row = changed;
    return code::success;
}

} // namespace

Cell::Cell(const std::string& column, int number) : name(column), value(Value::Integer) {
    value.setInteger(number);
}

Cell::Cell(const std::string& column, unsigned number) : name(column), value(Value::Counter) {
    value.setInteger(static_cast<int>(number));
}

Cell::Cell(const std::string& column, const std::string& text) : name(column), value(Value::Text) {
    value.setText(text);
}

ValueList row(std::initializer_list<Cell> cells) {
    ValueList values;
    for (const Cell& cell : cells)
        values.add(cell.name, cell.value);
    return values;
}

int FakeStore::number(const std::string& table, std::size_t index, const std::string& column) const {
    return tables_.at(table).at(index).getValue(column).getInteger();
}

void FakeStore::set(const std::string& table, std::size_t index, const Cell& cell) {
    ValueList& row = tables_.at(table).at(index);
    if (!overwrite(row, cell.name, cell.value))
        row.add(cell.name, cell.value);
}

std::vector<std::string> FakeStore::writes() const {
    std::vector<std::string> lines;
    std::remove_copy_if(journal_.begin(), journal_.end(), std::back_inserter(lines), onlyReads);
    return lines;
}

EResultCode FakeStore::size(const std::string& table, unsigned& rows) {
    const int result = checkTable(Operation::Size, table);
    if (result == code::success)
        rows = static_cast<unsigned>(tables_[table].size());
    return record("size " + table, result);
}

EResultCode FakeStore::selectRow(const std::string& table, unsigned index, ValueList& values,
                                 const NameList& columns) {
    std::string line = "select " + table + " " + std::to_string(index);
    for (const std::string& column : columns)
        line += " " + column;
    int result = checkTable(Operation::SelectRow, table);
    const ValueList* found = findRow(table, index);
    if (result == code::success && found == nullptr)
        result = code::noSuchRow;
    if (result == code::success) {
        values.clear();
        for (const auto& [name, value] : *found)
            if (columns.empty() || std::find(columns.begin(), columns.end(), name) != columns.end())
                values.add(name, value);
    }
    return record(line, result);
}

EResultCode FakeStore::selectRowByKey(const std::string& table, const std::string& keyColumn,
                                      const std::string& key, ValueList& values) {
    int result = checkTable(Operation::SelectRowByKey, table);
    const ValueList* found = findRow(table, keyColumn, key);
    if (result == code::success && found == nullptr)
        result = code::noSuchRow;
    if (result == code::success)
        values = *found;
    return record("select " + table + " " + keyColumn + "=" + key, result);
}

EResultCode FakeStore::writeSingleRow(const std::string& table, unsigned index, const ValueList& values) {
    int result = checkWrite(Operation::WriteSingleRow, table);
    if (result == code::success)
        result = index == 0 ? overwrite(findRow(table, 0), values) : code::noSuchRow;
    return record("write " + table + " " + std::to_string(index) + textOf(values), result);
}

EResultCode FakeStore::updateRow(const std::string& table, const std::string& keyColumn,
                                 const std::string& key, const ValueList& values) {
    int result = checkWrite(Operation::UpdateRow, table);
    if (result == code::success)
        result = overwrite(findRow(table, keyColumn, key), values);
    return record("update " + table + " " + keyColumn + "=" + key + textOf(values), result);
}

bool FakeStore::isTransactionOpen() {
    journal_.emplace_back("is open");
    return open_;
}

EResultCode FakeStore::startTransaction() {
    int result = injectedFailure(Operation::Start);
    if (result == code::success && open_)
        result = code::transactionOpen;
    if (result == code::success) {
        open_ = true;
        committed_ = tables_;
    }
    return record("start", result);
}

EResultCode FakeStore::closeTransaction() {
    int result = injectedFailure(Operation::Close);
    if (!open_)
        result = code::noTransaction;
    else if (result != code::success)
        tables_ = committed_;
    open_ = false;
    return record("close", result);
}

EResultCode FakeStore::abortTransaction() {
    int result = injectedFailure(Operation::Abort);
    if (!open_)
        result = code::noTransaction;
    else
        tables_ = committed_;
    open_ = false;
    return record("abort", result);
}

int FakeStore::injectedFailure(Operation operation) {
    const auto found = failures_.find(operation);
    if (found == failures_.end())
        return code::success;
    Failure& failure = found->second;
    if (failure.nth > 1) {
        --failure.nth;
        return code::success;
    }
    const int result = failure.code;
    if (failure.nth == 1)
        failures_.erase(found);
    return result;
}

EResultCode FakeStore::record(const std::string& line, int code) {
    journal_.push_back(code == code::success ? line : line + " -> " + std::to_string(code));
    return EResultCode(code);
}

int FakeStore::checkTable(Operation operation, const std::string& table) {
    if (const int injected = injectedFailure(operation); injected != code::success)
        return injected;
    return tables_.count(table) == 0 ? code::unknownTable : code::success;
}

int FakeStore::checkWrite(Operation operation, const std::string& table) {
    const int result = checkTable(operation, table);
    return result == code::success && !open_ ? code::noTransaction : result;
}

ValueList* FakeStore::findRow(const std::string& table, std::size_t index) {
    const auto found = tables_.find(table);
    return found != tables_.end() && index < found->second.size() ? &found->second[index] : nullptr;
}

ValueList* FakeStore::findRow(const std::string& table, const std::string& keyColumn,
                              const std::string& key) {
    const auto found = tables_.find(table);
    if (found == tables_.end())
        return nullptr;
    for (ValueList& row : found->second)
        if (row.getValue(keyColumn).getText() == key)
            return &row;
    return nullptr;
}

} // namespace fakes
