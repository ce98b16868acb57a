#pragma once

#include "store/storage/columnkind.h"
#include "velta/namelist.h"
#include "velta/protocol/message.h"
#include "velta/value.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// The tables that the server serves, read from CREATE TABLE statements. The word SHARED behind the definition
// of a column marks it as shared with other devices.
namespace store {

inline constexpr const char* idColumn = "Id";
constexpr std::int64_t singleRowId = 1; // of the row of a table without Ids

struct Column {
    std::string name;
    ColumnKind kind;
    velta::Value::TypeCode type = velta::Value::None; // on the wire
    velta::Value defaultValue;                        // none for the Id
    bool shared = false;                              // with other devices, where there are any; never the Id
};

struct Table {
    std::string name;
    std::vector<Column> columns;

    std::optional<std::size_t> indexOf(const std::string& column) const;
    velta::NameList columnNames() const;
    // Those that are shared, in their order. A table with an Id that has one shares its rows too.
    velta::NameList sharedColumns() const;
    bool isShared() const;
    // Without "Id" a table has one row and always that one.
    bool singleRow() const { return !indexOf(idColumn).has_value(); }
};

class Schema {
public:
    // Takes the tables of a text in SQL, which may hold CREATE TABLE statements and nothing else. `origin`
    // names the text in errors. Throws StorageError; what was added before stays.
    void add(const std::string& sql, const std::string& origin);
    void addFile(const std::string& path);

    // In the order in which they stand in the texts.
    const std::vector<Table>& tables() const { return tables_; }

private:
    std::vector<Table> tables_;
};

// All that a client can learn about the table's columns.
std::vector<velta::protocol::ColumnDescription> describe(const Table& table);

// The schema that is built in.
const char* defaultSchema();

} // namespace store
