#include "simulation/tables.h"

#include "orv/error.h"

#include <algorithm>
#include <utility>

namespace orv::simulation {

using velta::Value;
using velta::ValueList;
using velta::protocol::EResultCode;
namespace code = velta::protocol::code;

namespace {

constexpr const char* idColumn = "Id";

template <typename Rows>
auto findById(Rows& rows, int id) {
    const auto found =
        std::find_if(rows.begin(), rows.end(), [id](const ValueList& row) { return idOf(row) == id; });
    return found != rows.end() ? &*found : nullptr;
}

template <typename Rows>
auto findByKey(Rows& rows, const std::string& column, const std::string& key) {
    return std::find_if(rows.begin(), rows.end(), [&](const ValueList& row) {
        return row.hasValue(column) && row.getValue(column).getText() == key;
    });
}

// A column keeps its type, whatever is written to it.
Value ofType(unsigned type, const Value& value) {
    Value result(type);
    if (type == Value::Text)
        result.setText(value.getText());
    else
        result.setInteger(value.getInteger());
    return result;
}

ValueList selected(const ValueList& row, const velta::NameList& columns) {
    if (columns.empty())
        return row;
    ValueList values;
    for (const auto& [name, value] : row)
        if (std::find(columns.begin(), columns.end(), name) != columns.end())
            values.add(name, value);
    return values;
}

} // namespace

int idOf(const ValueList& row) {
    return row.getValue(idColumn).getInteger();
}

const ValueList* findRow(const Tables::Rows& rows, int id) {
    return findById(rows, id);
}

ValueList* findRow(Tables::Rows& rows, int id) {
    return findById(rows, id);
}

ValueList with(const ValueList& row, const ValueList& cells) {
    ValueList result;
    for (const auto& [name, value] : row)
        result.add(name, cells.hasValue(name) ? ofType(value.type(), cells.getValue(name)) : value);
    for (const auto& [name, value] : cells)
        if (!row.hasValue(name))
            result.add(name, value);
    return result;
}

const Tables::Rows& Tables::rows(const std::string& table) const {
    static const Rows none;
    const auto found = committed_.find(table);
    return found != committed_.end() ? found->second : none;
}

int Tables::number(const std::string& table, const std::string& column, int id) const {
    const ValueList* const row = findRow(rows(table), id);
    return row != nullptr ? row->getValue(column).getInteger() : 0;
}

std::string Tables::text(const std::string& table, const std::string& column, int id) const {
    const ValueList* const row = findRow(rows(table), id);
    return row != nullptr ? row->getValue(column).getText() : std::string();
}

std::uint64_t Tables::version(const std::string& table) const {
    const auto found = versions_.find(table);
    return found != versions_.end() ? found->second : 0;
}

void Tables::edit(const std::string& table, Rows rows) {
    std::stable_sort(rows.begin(), rows.end(),
                     [](const ValueList& one, const ValueList& other) { return idOf(one) < idOf(other); });
    const auto known = committed_.find(table);
    if (known != committed_.end() && known->second == rows)
        return;
    changed(table);
    if (open_)
        open_->erase(table);
    committed_[table] = std::move(rows);
}

void Tables::remove(const std::string& table) {
    if (committed_.erase(table) != 0)
        changed(table);
    if (open_)
        open_->erase(table);
}

std::set<std::string> Tables::takeNotices() {
    return std::exchange(notices_, {});
}

bool Tables::hasNotices(const std::set<std::string>& tables) const {
    return std::any_of(notices_.begin(), notices_.end(),
                       [&](const std::string& table) { return tables.count(table) != 0; });
}

void Tables::disconnect() {
    open_.reset();
    notices_.clear();
}

EResultCode Tables::size(const std::string& table, unsigned& rows) {
    const Rows* found = nullptr;
    const EResultCode readable = read(Operation::Size, table, found);
    if (!readable.ok())
        return readable;
    rows = static_cast<unsigned>(found->size());
    return {};
}

EResultCode Tables::selectRow(const std::string& table, unsigned row, ValueList& values,
                              const velta::NameList& columns) {
    values.clear();
    const Rows* found = nullptr;
    const EResultCode readable = read(Operation::SelectRow, table, found);
    if (!readable.ok())
        return readable;
    if (row >= found->size())
        return EResultCode(code::noSuchRow, table + ", row " + std::to_string(row));
    values = selected((*found)[row], columns);
    return {};
}

EResultCode Tables::selectRowByKey(const std::string& table, const std::string& keyColumn,
                                   const std::string& key, ValueList& values) {
    values.clear();
    const Rows* found = nullptr;
    const EResultCode readable = read(Operation::SelectRowByKey, table, found);
    if (!readable.ok())
        return readable;
    const auto row = findByKey(*found, keyColumn, key);
    if (row == found->end())
        return EResultCode(code::noSuchRow, table + "." + key);
    values = *row;
    return {};
}

EResultCode Tables::writeSingleRow(const std::string& table, unsigned row, const ValueList& values) {
    Rows* rows = nullptr;
    const EResultCode writable = write(Operation::WriteSingleRow, table, rows);
    if (!writable.ok())
        return writable;
    if (row != 0 || rows->size() != 1 || rows->front().hasValue(idColumn))
        return EResultCode(code::notSingleRow, table);
    rows->front() = with(rows->front(), values);
    remember(table, rows->front(), values);
    return {};
}

EResultCode Tables::updateRow(const std::string& table, const std::string& keyColumn, const std::string& key,
                              const ValueList& values) {
    Rows* rows = nullptr;
    const EResultCode writable = write(Operation::UpdateRow, table, rows);
    if (!writable.ok())
        return writable;
    const auto row = findByKey(*rows, keyColumn, key);
    if (row == rows->end())
        return EResultCode(code::noSuchRow, table + "." + key);
    *row = with(*row, values);
    remember(table, *row, values);
    return {};
}

EResultCode Tables::startTransaction() {
    const EResultCode allowed = before(Operation::Start);
    if (!allowed.ok())
        return allowed;
    if (open_)
        return code::transactionOpen;
    open_.emplace();
    written_.clear();
    return {};
}

EResultCode Tables::closeTransaction() {
    EResultCode allowed = before(Operation::Close);
    std::optional<TableMap> written = std::exchange(open_, std::nullopt);
    if (!allowed.ok() && allowed.code() != code::outcomeUnknown)
        return allowed;
    if (!written)
        return code::noTransaction;
    Changes changes;
    for (auto& [table, rows] : *written) {
        note(table, committed_[table], rows, changes);
        committed_[table] = std::move(rows);
    }
    bringIntoOrder(changes);
    if (onCommit_)
        onCommit_(changes);
    return allowed;
}

EResultCode Tables::abortTransaction() {
    const EResultCode allowed = before(Operation::Abort);
    const bool wasOpen = std::exchange(open_, std::nullopt).has_value();
    if (!allowed.ok())
        return allowed;
    return wasOpen ? EResultCode() : EResultCode(code::noTransaction);
}

EResultCode Tables::before(Operation operation, const std::string& table) const {
    return fault_ ? fault_(operation, table) : EResultCode();
}

// The owner of a transaction reads its own writes.
const Tables::Rows* Tables::find(const std::string& table) const {
    if (open_) {
        const auto written = open_->find(table);
        if (written != open_->end())
            return &written->second;
    }
    const auto found = committed_.find(table);
    return found != committed_.end() ? &found->second : nullptr;
}

EResultCode Tables::read(Operation operation, const std::string& table, const Rows*& rows) const {
    const EResultCode allowed = before(operation, table);
    if (!allowed.ok())
        return allowed;
    rows = find(table);
    return rows != nullptr ? EResultCode() : EResultCode(code::unknownTable, table);
}

EResultCode Tables::write(Operation operation, const std::string& table, Rows*& rows) {
    const EResultCode allowed = before(operation, table);
    if (!allowed.ok())
        return allowed;
    if (!open_)
        return code::noTransaction;
    const Rows* const current = find(table);
    if (current == nullptr)
        return EResultCode(code::unknownTable, table);
    rows = &open_->try_emplace(table, *current).first->second;
    return {};
}

void Tables::remember(const std::string& table, const ValueList& row, const ValueList& cells) {
    for (const auto& [column, value] : cells)
        written_.try_emplace(Cell(table, idOf(row), column), written_.size());
}

void Tables::note(const std::string& table, const Rows& before, const Rows& after, Changes& changes) {
    ORV_ASSERT(before.size() == after.size()); // the client has no operation that adds or removes a row
    for (std::size_t row = 0; row < before.size(); ++row)
        for (const auto& [column, value] : after[row])
            if (before[row].getValue(column) != value)
                changes.push_back(
                    Change{table, idOf(after[row]), column, before[row].getValue(column), value});
    if (before != after)
        changed(table);
}

void Tables::bringIntoOrder(Changes& changes) const {
    const auto place = [this](const Change& change) {
        const auto found = written_.find(Cell(change.table, change.id, change.column));
        return found != written_.end() ? found->second : written_.size();
    };
    std::stable_sort(changes.begin(), changes.end(),
                     [&](const Change& one, const Change& other) { return place(one) < place(other); });
}

void Tables::changed(const std::string& table) {
    notices_.insert(table);
    ++version_;
    ++versions_[table];
}

} // namespace orv::simulation
