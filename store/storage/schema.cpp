#include "store/storage/schema.h"

#include "store/storage/cells.h"
#include "store/storage/introspection.h"
#include "store/storage/sharedmarks.h"
#include "store/storage/sqlite.h"
#include "store/storage/sqlwords.h"
#include "store/storage/tablesizes.h"
#include "velta/protocol/frame.h"
#include "velta/text.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <utility>

#include <sys/stat.h>

namespace store {

namespace {

using velta::Value;

constexpr std::size_t sizeLimit = 1024 * 1024; // bytes of one schema text
constexpr std::size_t nameLimit = 63;
constexpr std::size_t columnLimit = 128;
constexpr std::size_t mostTables = 1000;

// What is said about one table, or about all of them, fits into one message. A piece of a reading ends behind
// the row that exceeds the piece's size (see readings.cpp), so such a row takes three quarters of a message.
constexpr std::size_t nameBytes = sizeof(std::uint32_t) + nameLimit;
constexpr std::size_t cellBytes = static_cast<std::size_t>(cellOverhead) + textLimit;
constexpr std::size_t kindBytes = 32; // of a described column: the type, the kind, the least and the most
constexpr std::size_t messageLimit = velta::protocol::frameLimit;
static_assert(columnLimit * (nameBytes + cellBytes) < messageLimit / 4 * 3, "a row fits into a message");
static_assert(columnLimit * (nameBytes + kindBytes + cellBytes) < messageLimit, "so does a described table");
static_assert(mostTables * (nameBytes + 1) < messageLimit, "so does a list of all tables");

// Clauses that SQLite would accept and the store would ignore. None of them can be a column's name and type:
// the single words are reserved in SQLite, and no pair is a column that the store would accept.
struct Phrase {
    const char* first;
    const char* second; // null: any word or none may follow

    std::string text() const { return second == nullptr ? first : std::string(first) + ' ' + second; }
};

constexpr Phrase notHeeded[] = {
    {"COLLATE", nullptr}, {"REFERENCES", nullptr}, {"AUTOINCREMENT", nullptr}, {"CONSTRAINT", nullptr},
    {"ON", "CONFLICT"},   {"NOT", "EXISTS"},       {"WITHOUT", "ROWID"},
};

constexpr const char* onlyPlain =
    "only plain CREATE TABLE statements may stand in it, with no constraint but NOT NULL and DEFAULT";

bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isName(const std::string& text) {
    if (text.empty() || text.size() > nameLimit || !isLetter(text[0]) ||
        sameName(text.substr(0, 7), "sqlite_"))
        return false;
    for (const char c : text)
        if (!isLetter(c) && !(c >= '0' && c <= '9') && c != '_')
            return false;
    return true;
}

// Permits CREATE TABLE and the entries that it makes in SQLite's own table. UNIQUE is refused because it
// makes an index, CHECK because it reads columns.
int allowCreateTable(void*, int action, const char* name, const char*, const char*, const char*) {
    switch (action) {
    case SQLITE_CREATE_TABLE:
        return SQLITE_OK;
    case SQLITE_INSERT:
    case SQLITE_UPDATE:
    case SQLITE_READ:
        return std::strcmp(name, "sqlite_master") == 0 ? SQLITE_OK : SQLITE_DENY;
    default:
        return SQLITE_DENY;
    }
}

[[noreturn]] void refuse(const std::string& origin, const std::string& reason) {
    throw StorageError("schema " + origin + ": " + reason);
}

bool standsAt(const std::vector<std::string>& words, std::size_t at, const Phrase& phrase) {
    if (!sameName(words[at], phrase.first))
        return false;
    return phrase.second == nullptr || (at + 1 < words.size() && sameName(words[at + 1], phrase.second));
}

void checkWords(const std::string& sql, const std::string& origin) {
    const std::optional<std::vector<std::string>> words = wordsOf(sql);
    if (!words)
        refuse(origin, "a comment is not closed");
    for (std::size_t at = 0; at < words->size(); ++at)
        for (const Phrase& phrase : notHeeded)
            if (standsAt(*words, at, phrase))
                refuse(origin, phrase.text() + " is not possible, " + onlyPlain);
}

void checkText(const std::string& sql, const std::string& origin) {
    if (sql.size() > sizeLimit)
        refuse(origin, "larger than 1 MiB");
    if (sql.find('\0') != std::string::npos)
        refuse(origin, "not a text, it holds a zero byte");
    checkWords(sql, origin);
}

SharedMarks marksIn(const std::string& sql, const std::string& origin) {
    try {
        return sharedMarksIn(sql);
    } catch (const StorageError& error) {
        refuse(origin, error.what());
    }
}

void runOnlyCreateTable(Connection& scratch, const std::string& sql, const std::string& origin) {
    sqlite3_set_authorizer(scratch.handle(), allowCreateTable, nullptr);
    const int code = sqlite3_exec(scratch.handle(), sql.c_str(), nullptr, nullptr, nullptr);
    if ((code & 0xff) == SQLITE_AUTH)
        refuse(origin, onlyPlain);
    if (code != SQLITE_OK)
        refuse(origin, sqlite3_errmsg(scratch.handle()));
    sqlite3_set_authorizer(scratch.handle(), nullptr, nullptr);
}

// The text of an SQL literal in single quotes; none if it is no such literal.
std::optional<std::string> unquoted(const std::string& sql) {
    if (sql.size() < 2 || sql.front() != '\'' || sql.back() != '\'')
        return std::nullopt;
    std::string text;
    for (std::size_t i = 1; i + 1 < sql.size(); ++i) {
        text += sql[i];
        if (sql[i] == '\'' && sql[++i] != '\'')
            return std::nullopt;
    }
    return text;
}

std::optional<Value> plainValue(Value::TypeCode type, const std::string& sql) {
    Value value(type);
    if (type == Value::Text) {
        const std::optional<std::string> text = unquoted(sql);
        if (!text)
            return std::nullopt;
        value.setText(*text);
    } else {
        const std::optional<std::int64_t> number = velta::wholeNumber(sql);
        if (!number || !fits(velta::rangeOf(type), *number))
            return std::nullopt;
        value = velta::numberValue(type, *number);
    }
    return acceptable(type, value) ? std::optional<Value>(value) : std::nullopt;
}

Column checkedId(const DeclaredColumn& declared, const std::string& place) {
    if (!sameName(declared.type, nameOf(Kind::Integer)) || !declared.primaryKey)
        refuse(place, "must be INTEGER PRIMARY KEY");
    const velta::Range range{leastId, velta::rangeOf(Value::Integer).most};
    return {declared.name, {Kind::Integer, range}, Value::Integer, Value(), false};
}

Value checkedDefault(const ColumnKind& kind, const std::string& sql, const std::string& place) {
    const std::optional<Value> value = plainValue(typeOf(kind.kind), sql);
    if (!value)
        refuse(place, "the default " + sql + " is no plain value of its type");
    if (!isWithin(kind, *value))
        refuse(place, "the default " + complaintOf(kind, *value));
    return *value;
}

Column checkedColumn(const DeclaredColumn& declared, const std::string& place) {
    if (!isName(declared.name))
        refuse(place, "a name has a letter in front, then letters, digits and _, at most 63 in all");
    if (declared.generated)
        refuse(place, "generated columns are not possible");
    if (declared.name == idColumn)
        return checkedId(declared, place);
    const std::optional<ColumnKind> kind = columnKindOf(declared.type);
    if (!kind)
        refuse(place, "the type \"" + declared.type +
                          "\" is none of SWITCH, INTEGER, COUNTER, TEXT and TIME, " +
                          "or its range is none: INTEGER(least, most)");
    if (declared.primaryKey)
        refuse(place, "only the column \"Id\" may be the primary key");
    if (!declared.notNull || !declared.defaultSql)
        refuse(place, "must have NOT NULL and DEFAULT");
    return {declared.name, *kind, typeOf(kind->kind), checkedDefault(*kind, *declared.defaultSql, place),
            false};
}

void noteMark(Column& column, const std::string& table, SharedMarks& marks, const std::string& place) {
    column.shared = marks.take(table, column.name);
    if (column.shared && column.name == idColumn)
        refuse(place, "can't be SHARED: the Ids are shared with the rows, where another column is");
}

Table checkedTable(Connection& scratch, const std::string& name, SharedMarks& marks,
                   const std::string& origin) {
    const std::string place = origin + ": table " + name;
    if (!isName(name))
        refuse(place, "a name has a letter in front, then letters, digits and _, at most 63 in all");
    if (isStrict(scratch, name))
        refuse(place, "STRICT is not possible");
    Table table{name, {}};
    for (const DeclaredColumn& column : declaredColumns(scratch, name)) {
        const std::string columnPlace = place + ", column " + column.name;
        table.columns.push_back(checkedColumn(column, columnPlace));
        noteMark(table.columns.back(), name, marks, columnPlace);
    }
    if (table.columns.size() > columnLimit)
        refuse(place, "more than 128 columns");
    return table;
}

} // namespace

std::optional<std::size_t> Table::indexOf(const std::string& column) const {
    for (std::size_t i = 0; i < columns.size(); ++i)
        if (columns[i].name == column)
            return i;
    return std::nullopt;
}

velta::NameList Table::columnNames() const {
    velta::NameList names;
    names.reserve(columns.size());
    for (const Column& column : columns)
        names.push_back(column.name);
    return names;
}

velta::NameList Table::sharedColumns() const {
    velta::NameList names;
    for (const Column& column : columns)
        if (column.shared)
            names.push_back(column.name);
    return names;
}

bool Table::isShared() const {
    return std::any_of(columns.begin(), columns.end(), [](const Column& column) { return column.shared; });
}

void Schema::add(const std::string& sql, const std::string& origin) {
    checkText(sql, origin);
    SharedMarks marks = marksIn(sql, origin);
    Connection scratch(":memory:", SQLITE_OPEN_READWRITE | SQLITE_OPEN_MEMORY);
    runOnlyCreateTable(scratch, marks.sql, origin);
    std::vector<Table> added;
    for (const std::string& name : declaredTables(scratch)) {
        for (const Table& known : tables_)
            if (sameName(known.name, name))
                refuse(origin, "table " + name + " is there already, as " + known.name);
        added.push_back(checkedTable(scratch, name, marks, origin));
    }
    if (!marks.columns.empty())
        refuse(origin, "table " + marks.columns.begin()->first + ": SHARED stands behind what is no column");
    if (added.empty())
        refuse(origin, "no table in it");
    if (tables_.size() + added.size() > mostTables)
        refuse(origin, "more than 1000 tables");
    tables_.insert(tables_.end(), added.begin(), added.end());
}

void Schema::addFile(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0)
        refuse(path, std::strerror(errno));
    if (!S_ISREG(status.st_mode))
        refuse(path, "not a regular file");
    std::ifstream file(path, std::ios::binary);
    std::string sql(sizeLimit + 1, '\0'); // one byte more than permitted, to notice a text that is too long
    file.read(sql.data(), static_cast<std::streamsize>(sql.size()));
    if (!file.is_open() || file.bad())
        refuse(path, "can't be read");
    sql.resize(static_cast<std::size_t>(file.gcount()));
    add(sql, path);
}

std::vector<velta::protocol::ColumnDescription> describe(const Table& table) {
    std::vector<velta::protocol::ColumnDescription> columns;
    for (const Column& column : table.columns) {
        velta::protocol::ColumnDescription description;
        description.name = column.name;
        description.type = column.type;
        description.kind = nameOf(column.kind.kind);
        description.defaultValue = column.defaultValue;
        if (velta::isNumber(column.type)) {
            description.least = velta::numberValue(column.type, column.kind.range.least);
            description.most = velta::numberValue(column.type, column.kind.range.most);
        }
        columns.push_back(std::move(description));
    }
    return columns;
}

} // namespace store
