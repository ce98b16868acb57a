#pragma once

#include "store/storage/database.h"
#include "velta/protocol/wire.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// A small schema for the tests, and rows as values.
inline constexpr const char* testTables =
    "CREATE TABLE Plans (Id INTEGER PRIMARY KEY,"
    " Name TEXT NOT NULL DEFAULT 'none', Status SWITCH NOT NULL DEFAULT 0,"
    " Level INTEGER NOT NULL DEFAULT -1, Runs COUNTER NOT NULL DEFAULT 7);"
    "CREATE TABLE Globals (Enable SWITCH NOT NULL DEFAULT 1,"
    " Text TEXT NOT NULL DEFAULT 'it''s');"
    "CREATE TABLE Other (Enable SWITCH NOT NULL DEFAULT 0);";

inline store::Schema schemaOf(const std::string& sql) {
    store::Schema schema;
    schema.add(sql, "test");
    return schema;
}

inline velta::Value numberValue(unsigned type, int number) {
    velta::Value value(type);
    value.setInteger(number);
    return value;
}
inline velta::Value switchValue(int number) {
    return numberValue(velta::Value::Switch, number);
}
inline velta::Value integerValue(int number) {
    return numberValue(velta::Value::Integer, number);
}
inline velta::Value counterValue(int number) {
    return numberValue(velta::Value::Counter, number);
}
inline velta::Value textValue(const std::string& text) {
    velta::Value value(velta::Value::Text);
    value.setText(text);
    return value;
}

inline velta::ValueList cell(const std::string& column, const velta::Value& value) {
    velta::ValueList values;
    values.add(column, value);
    return values;
}

inline void appendRows(std::vector<velta::ValueList>& rows, const velta::NameList& columns,
                       std::uint32_t count, std::string_view cells) {
    velta::protocol::Reader reader(cells);
    for (std::uint32_t row = 0; row < count; ++row) {
        velta::ValueList values;
        for (const std::string& column : columns)
            values.add(column, reader.value());
        rows.push_back(values);
    }
}

inline std::vector<velta::ValueList> valuesOf(const store::Rows& rows) {
    std::vector<velta::ValueList> values;
    appendRows(values, rows.columns, rows.count, rows.cells);
    return values;
}

// All rows of a table, read piece by piece.
inline velta::protocol::EResultCode readTable(store::Database& database, const std::string& table,
                                              store::Database::View view,
                                              std::vector<velta::ValueList>& values) {
    constexpr std::size_t pieceBytes = 64 * 1024;
    std::unique_ptr<store::TableReading> reading;
    if (auto result = database.beginReading(table, view, reading); !result.ok())
        return result;
    store::Rows rows;
    do {
        if (auto result = reading->next(rows, pieceBytes); !result.ok())
            return result;
        appendRows(values, reading->columns(), rows.count, rows.cells);
    } while (rows.count > 0);
    return {};
}

inline std::vector<velta::ValueList> tableOf(store::Database& database, const std::string& table,
                                             store::Database::View view = store::Database::View::LastCommit) {
    std::vector<velta::ValueList> values;
    return readTable(database, table, view, values).ok() ? values : std::vector<velta::ValueList>();
}

// All rows of a table, read at once.
inline std::vector<velta::ValueList> smallTableOf(store::Database& database, const std::string& table) {
    store::Rows rows;
    bool complete = false;
    const auto result =
        database.readSmall(table, store::Database::View::LastCommit, 64 * 1024, rows, complete);
    return result.ok() && complete ? valuesOf(rows) : std::vector<velta::ValueList>();
}

// The tables that a commit changed; {"failed"} when there was none.
inline velta::NameList commit(store::Database& database) {
    velta::NameList changed;
    return database.transaction().commit(changed).ok() ? changed : velta::NameList{"failed"};
}
