#pragma once

#include "cfg/configclient.h"
#include "tools/errors.h"
#include "velta/protocol/message.h"
#include "velta/valuelist.h"

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

// What the commands ask of the store, with its refusals as exceptions.
namespace tools {

inline constexpr const char* idColumn = "Id";
inline constexpr std::chrono::seconds connectPatience(1); // where many want to connect at once
inline constexpr unsigned answerTimeout = 30;             // seconds; longer than a transaction waits its turn

using Rows = std::vector<velta::ValueList>;

// How the store's table is made.
struct Table {
    std::string name;
    bool singleRow = false;
    std::vector<velta::protocol::ColumnInfo> columns;

    // Throws Refused for a column that the table hasn't.
    const velta::protocol::ColumnInfo& column(const std::string& columnName) const;
};

// What a failed operation says to a person, on a connection that was open once.
std::string failureText(const velta::protocol::EResultCode& result);
// Throws Refused with that text for a failure.
void require(const velta::protocol::EResultCode& result);

// Opens the connection, and waits a second for a place where many want one; throws Refused where no store
// answers at the path.
void connect(orv::cfg::Connection& connection, const std::string& socketPath);

// All throw Refused.
std::vector<velta::protocol::TableInfo> listTables(orv::cfg::ConfigClient& client);
// Those of the names, each once, in their order; all where there is no name.
std::vector<velta::protocol::TableInfo> selectTables(orv::cfg::ConfigClient& client,
                                                     const std::vector<std::string>& names);
Table describeTable(orv::cfg::ConfigClient& client, const std::string& name);
Rows readRows(orv::cfg::common::IConfigClient& client, const std::string& table);

std::uint32_t idOf(const velta::ValueList& row);

// Aborts where it was not committed. Both throw Refused.
class Transaction {
public:
    explicit Transaction(orv::cfg::common::IConfigClient& client);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    void commit();
    // For a caller that knows what to do about a failure.
    velta::protocol::EResultCode tryCommit();

private:
    orv::cfg::common::IConfigClient& client_;
};

} // namespace tools
