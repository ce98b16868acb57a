#include "support/fakeovsdb.h"

#include <algorithm>
#include <set>
#include <stdexcept>
#include <utility>

namespace test {

namespace {

bool isAmong(const Json& row, const Json& where) {
    return std::all_of(where.begin(), where.end(), [&row](const Json& condition) {
        const Json& function = condition.at(1);
        if (function != "==" && function != "!=")
            throw std::logic_error("neither an equality nor an inequality: " + condition.dump());
        return (row.at(condition.at(0).get<std::string>()) == condition.at(2)) == (function == "==");
    });
}

Json cellsOf(const Json& row, const Json& columns) {
    Json cells = Json::object();
    for (const std::string column : columns)
        cells[column] = row.at(column);
    return cells;
}

void update(Json& row, const Json& operation) {
    row.update(operation.at("row"));
}

void mutate(Json& row, const Json& operation) {
    for (const Json& mutation : operation.at("mutations"))
        row[mutation.at(0).get<std::string>()] =
            row.at(mutation.at(0).get<std::string>()).get<int>() + mutation.at(2).get<int>();
}

} // namespace

void FakeOvsdb::addIndex(const std::string& table, std::vector<std::string> columns) {
    indexes_.push_back({table, std::move(columns)});
}

Json FakeOvsdb::transact(const Json& operations) {
    const auto before = tables_;
    Json results = Json::array();
    for (const Json& operation : operations) {
        results.push_back(carryOut(operation));
        if (results.back().contains("error"))
            break;
    }
    if (results.size() == operations.size() && !areIndexesUnique())
        results.push_back({{"error", "constraint violation"}, {"details", "identical values"}});
    if (!results.empty() && results.back().contains("error"))
        tables_ = before;
    while (results.size() < operations.size())
        results.push_back(nullptr);
    return results;
}

Json FakeOvsdb::carryOut(const Json& operation) {
    const std::string kind = operation.at("op");
    if (kind == "wait")
        return wait(operation);
    if (kind == "insert")
        return insert(operation);
    if (kind == "select")
        return select(operation);
    if (kind == "update")
        return change(operation, update);
    if (kind == "mutate")
        return change(operation, mutate);
    if (kind == "delete")
        return remove(operation);
    if (kind == "commit")
        return Json::object();
    throw std::logic_error("an unknown operation: " + kind);
}

Json FakeOvsdb::wait(const Json& operation) {
    std::multiset<std::string> found;
    for (const Json& row : tables_[operation.at("table")])
        if (isAmong(row, operation.at("where")))
            found.insert(cellsOf(row, operation.at("columns")).dump());
    std::multiset<std::string> expected;
    for (const Json& row : operation.at("rows"))
        expected.insert(row.dump());
    if (found == expected)
        return Json::object();
    return {{"error", "timed out"}, {"details", "\"where\" clause test failed"}};
}

Json FakeOvsdb::insert(const Json& operation) {
    const std::string table = operation.at("table");
    Json row = defaults_.count(table) != 0 ? defaults_.at(table) : Json::object();
    row.update(operation.at("row"));
    row["_uuid"] = Json::array({"uuid", std::to_string(nextUuid_++)});
    Json result = {{"uuid", row["_uuid"]}};
    tables_[table].push_back(std::move(row));
    return result;
}

Json FakeOvsdb::select(const Json& operation) {
    Json rows = Json::array();
    for (const Json& row : tables_[operation.at("table")])
        if (isAmong(row, operation.at("where")))
            rows.push_back(cellsOf(row, operation.at("columns")));
    return {{"rows", std::move(rows)}};
}

Json FakeOvsdb::change(const Json& operation, void (*apply)(Json& row, const Json& operation)) {
    int count = 0;
    for (Json& row : tables_[operation.at("table")])
        if (isAmong(row, operation.at("where"))) {
            apply(row, operation);
            ++count;
        }
    return {{"count", count}};
}

Json FakeOvsdb::remove(const Json& operation) {
    std::vector<Json>& rows = tables_[operation.at("table")];
    const auto from = std::remove_if(rows.begin(), rows.end(), [&operation](const Json& row) {
        return isAmong(row, operation.at("where"));
    });
    const auto count = rows.end() - from;
    rows.erase(from, rows.end());
    return {{"count", count}};
}

bool FakeOvsdb::areIndexesUnique() const {
    for (const Index& index : indexes_) {
        std::set<std::string> seen;
        const auto table = tables_.find(index.table);
        if (table == tables_.end())
            continue;
        for (const Json& row : table->second)
            if (!seen.insert(cellsOf(row, index.columns).dump()).second)
                return false;
    }
    return true;
}

} // namespace test
