#pragma once

#include "velta/namelist.h"
#include "velta/protocol/resultcode.h"
#include "velta/valuelist.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// The messages between the configuration store and its clients; cfgserver.protocol(7) has them on one page.
//
// A client sends requests, the store answers each with one reply of the same sequence number (a table comes
// as several Rows replies in a row). Between replies the store sends notices.
namespace velta::protocol {

inline constexpr std::uint32_t version = 1;
inline constexpr std::uint32_t magic = 0x48524346; // "HRCF", begins every greeting

enum class RequestKind : std::uint8_t {
    Hello = 1,     // the first one; number: the client's version, key: its name
    Tables = 2,    // answered by Tables
    Columns = 3,   // of a table, answered by Columns
    ReadTable = 4, // all rows in Id order, answered by Rows
    ReadRow = 5,   // the row with that index, from 0, in Id order, answered by Rows
    ReadKey = 6,   // the first row whose key column holds the key, answered by Rows
    Subscribe = 7, // to exactly these tables from now on; number: 1 leaves out the client's own commits
    Begin = 8,     // number: milliseconds to wait for one's turn
    Commit = 9,
    Abort = 10,
    WriteSingle = 11,   // cells of the one row of a single-row table; number: the row, 0
    Update = 12,        // cells of the first row whose key column holds the key
    Insert = 13,        // a row; answered by Done with its Id
    Remove = 14,        // the row whose key column holds the key
    Describe = 15,      // the columns of a table in full, answered by Description
    SharedColumns = 16, // those of a table that are shared with other devices, answered by Columns
};

struct Request {
    RequestKind kind = RequestKind::Hello;
    std::uint32_t sequence = 0;
    // Which of these a kind carries stands in message.cpp; the others stay empty.
    std::string table;
    std::string keyColumn;
    std::string key;
    std::uint32_t number = 0;
    NameList names;
    ValueList values;
};

enum class ReplyKind : std::uint8_t {
    Done = 128,        // number: an inserted row's Id, the protocol version, else 0
    Failed = 129,      // result
    Tables = 130,      // tables
    Columns = 131,     // columns
    Rows = 132,        // rows
    Notice = 133,      // names of the tables that commits changed; sequence 0
    Description = 134, // descriptions
};

struct TableInfo {
    std::string name;
    bool singleRow = false;
};

struct ColumnInfo {
    std::string name;
    unsigned type = 0; // Value::TypeCode
};

// All that a store tells about a column.
struct ColumnDescription {
    std::string name;
    unsigned type = 0; // Value::TypeCode
    std::string kind;  // "SWITCH", "INTEGER", "COUNTER", "TEXT", "TIME"; a newer store may know others
    Value least;       // of the type of the column where that is a number, else none
    Value most;
    Value defaultValue; // of the type of the column; none where it has none, as the Id
};

// A piece of a table. The cells of the rows stand one after the other in the order of the columns.
struct RowsPiece {
    bool last = false;           // no further piece follows
    std::uint32_t totalRows = 0; // of all pieces together
    std::uint32_t rows = 0;      // of this piece
    NameList columns;
    std::string_view cells; // points into the message
};

struct Reply {
    ReplyKind kind = ReplyKind::Done;
    std::uint32_t sequence = 0;
    std::uint32_t number = 0;
    EResultCode result;
    std::vector<TableInfo> tables;
    std::vector<ColumnInfo> columns;
    std::vector<ColumnDescription> descriptions;
    RowsPiece rows;
    NameList names;
};

// Each appends one whole frame to `bytes`. It may be over the limit of a frame: the sender checks that.
void encode(const Request& request, std::string& bytes);
void encode(const Reply& reply, std::string& bytes);

// False for a malformed message: of an unknown kind, too short, too long, or with a length or count that the
// remaining bytes can't hold. The cells of a Rows reply are checked as well. The previous content of the
// request or reply is lost. A Rows reply points into `message`.
[[nodiscard]] bool decode(std::string_view message, Request& request);
[[nodiscard]] bool decode(std::string_view message, Reply& reply);

} // namespace velta::protocol
