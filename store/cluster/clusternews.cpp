#include "store/cluster/clusternews.h"

#include "store/cluster/ovsdbvalue.h"
#include "store/storage/cells.h"

#include <utility>

namespace store {

namespace {

// A change of one row: what kind it is, and the cells that came with it.
struct RowNews {
    bool isWhole = false; // columns that are missing have the default of their type
    bool isRemoved = false;
    const Json* cells = nullptr;
};

std::optional<RowNews> rowNewsOf(const Json& change) {
    for (const char* const kind : {"initial", "insert"})
        if (const Json* const cells = objectAt(change, kind))
            return RowNews{true, false, cells};
    if (const Json* const cells = objectAt(change, "modify"))
        return RowNews{false, false, cells};
    if (memberOf(change, "delete") != nullptr)
        return RowNews{false, true, nullptr};
    return std::nullopt;
}

std::optional<std::int64_t> integerOf(const RowNews& row, const char* column) {
    if (memberOf(*row.cells, column) == nullptr && row.isWhole)
        return 0;
    return integerAt(*row.cells, column);
}

// For people. The Id of a row that was changed did not come.
std::string nameOf(const Table& table, const std::string& uuid, const SharedUpdate::Values& values) {
    if (table.singleRow())
        return table.name;
    return table.name + (values.id ? '.' + std::to_string(*values.id) : " (" + shown(uuid) + ')');
}

std::string readCells(const Table& table, const std::string& uuid, const RowNews& row,
                      SharedUpdate::Values& values) {
    if (!table.singleRow())
        values.id = integerOf(row, idColumn);
    for (const std::string& name : table.sharedColumns()) {
        const Column& column = table.columns[*table.indexOf(name)];
        std::optional<velta::Value> value;
        if (const Json* const atom = memberOf(*row.cells, name.c_str())) {
            std::string complaint;
            value = valueOf(column, *atom, complaint);
            if (!value)
                return nameOf(table, uuid, values) + ' ' + name + ": " + complaint;
        } else if (row.isWhole) {
            value = velta::Value(column.type); // 0, or an empty text
        }
        values.cells.push_back(std::move(value));
    }
    return {};
}

void readRow(const Schema& schema, std::size_t table, const std::string& uuid, const RowNews& row,
             ClusterNews& news) {
    SharedUpdate update;
    update.table = table;
    update.uuid = uuid;
    if (!row.isRemoved) {
        std::string complaint = readCells(schema.tables()[table], uuid, row, update.values.emplace());
        if (!complaint.empty())
            return news.refused.push_back({table, uuid, std::move(complaint)});
    }
    news.rows.push_back(std::move(update));
}

void readOwn(const std::string& table, const std::string& uuid, const RowNews& row, ClusterNews& news) {
    if (row.isRemoved)
        return;
    if (table == "Cluster")
        news.seed = ClusterNews::Seed{uuid, textAt(*row.cells, "SeededBy")};
    if (table == "Devices") {
        if (const auto token = integerOf(row, "Token"))
            news.token = token;
        if (const auto done = integerOf(row, "Done"))
            news.done = done;
    }
}

std::optional<std::size_t> sharedTable(const Schema& schema, const std::string& name) {
    for (std::size_t i = 0; i < schema.tables().size(); ++i)
        if (schema.tables()[i].name == name && schema.tables()[i].isShared())
            return i;
    return std::nullopt;
}

} // namespace

std::string readNews(const Schema& schema, const Json& tables, ClusterNews& news) {
    for (const auto& [name, changes] : tables.items()) {
        if (!changes.is_object())
            return "table " + shown(name) + ": malformed";
        const std::optional<std::size_t> table = sharedTable(schema, name);
        for (const auto& [uuid, change] : changes.items()) {
            const std::optional<RowNews> row = rowNewsOf(change);
            if (!row)
                return "table " + shown(name) + ": a malformed row";
            if (!table)
                readOwn(name, uuid, *row, news);
            else
                readRow(schema, *table, uuid, *row, news);
        }
    }
    return {};
}

Json monitorRequests(const Schema& schema, const std::string& device) {
    Json requests = Json::object();
    for (const Table& table : schema.tables()) {
        if (!table.isShared())
            continue;
        Json columns = Json(table.sharedColumns());
        if (!table.singleRow())
            columns.push_back(idColumn);
        requests[table.name] = Json::array({Json{{"columns", std::move(columns)}}});
    }
    requests["Cluster"] = Json::array({Json{{"columns", Json::array({"SeededBy"})}}});
    requests["Devices"] = Json::array({Json{{"columns", Json::array({"Token", "Done"})},
                                            {"where", Json::array({Json::array({"Name", "==", device})})}}});
    return requests;
}

} // namespace store
