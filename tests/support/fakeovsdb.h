#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace test {

using Json = nlohmann::json;

// The tables of a cluster, for the operations that the store sends: conditions are "==" and "!=", and a
// "wait" does not wait. A transaction is carried out whole or not at all.
class FakeOvsdb {
public:
    // Columns that a new row has without being given, with their values.
    explicit FakeOvsdb(std::map<std::string, Json> defaults) : defaults_(std::move(defaults)) {}

    // No two rows may have the same cells in these columns.
    void addIndex(const std::string& table, std::vector<std::string> columns);

    // The results as a member answers them: the operations after one that failed have none.
    Json transact(const Json& operations);

    std::vector<Json>& rows(const std::string& table) { return tables_[table]; }

private:
    struct Index {
        std::string table;
        std::vector<std::string> columns;
    };

    Json carryOut(const Json& operation);
    Json wait(const Json& operation);
    Json insert(const Json& operation);
    Json select(const Json& operation);
    Json change(const Json& operation, void (*apply)(Json& row, const Json& operation));
    Json remove(const Json& operation);
    bool areIndexesUnique() const;

    std::map<std::string, Json> defaults_;
    std::vector<Index> indexes_;
    std::map<std::string, std::vector<Json>> tables_;
    int nextUuid_ = 1;
};

} // namespace test
