#include "store/cluster/clusterschema.h"

#include "store/cluster/ovsdbvalue.h"
#include "store/storage/cells.h"

#include <utility>
#include <vector>

namespace store {

using velta::Value;

namespace {

constexpr const char* schemaVersion = "1.0.0";
constexpr std::size_t mostDifferences = 5; // that are named

Json columnOf(Value::TypeCode type) {
    return Json{{"type", ovsdbTypeOf(type)}};
}

Json tableOf(Json columns, Json indexes) {
    return Json{{"columns", std::move(columns)}, {"indexes", std::move(indexes)}, {"isRoot", true}};
}

Json singleRowTableOf(Json columns) {
    return Json{{"columns", std::move(columns)}, {"maxRows", 1}, {"isRoot", true}};
}

Json sharedTableOf(const Table& table) {
    Json columns = Json::object();
    for (const Column& column : table.columns)
        if (column.shared)
            columns[column.name] = columnOf(column.type);
    if (table.singleRow())
        return singleRowTableOf(std::move(columns));
    columns[idColumn] = columnOf(Value::Integer);
    columns[idColumn]["mutable"] = false;
    return tableOf(std::move(columns), Json::array({Json::array({idColumn})}));
}

Json ownTables() {
    const Json number = columnOf(Value::Integer);
    const Json text = columnOf(Value::Text);
    return Json{{"Devices", tableOf({{"Name", text}, {"Token", number}, {"Done", number}, {"Probe", number}},
                                    Json::array({Json::array({"Name"})}))},
                {"Cluster", singleRowTableOf({{"SchemaVersion", number}, {"SeededBy", text}})},
                {"Reserved", tableOf({{"Table", text}, {"Id", number}, {"Device", text}},
                                     Json::array({Json::array({"Table", "Id"})}))}};
}

// The member of an object; null if there is none, or it is no object.
const Json& at(const Json& object, const std::string& name) {
    static const Json none;
    const auto found = object.find(name);
    return found == object.end() ? none : *found;
}

// The type of a column that holds exactly one value; none of any other column.
std::string baseTypeOf(const Json& type) {
    const Json& key = type.is_object() ? at(type, "key") : type;
    const Json& base = key.is_object() ? at(key, "type") : key;
    const bool isOne = !type.is_object() || (type.value("min", Json(1)) == 1 &&
                                             type.value("max", Json(1)) == 1 && !type.contains("value"));
    return isOne && base.is_string() ? base.get<std::string>() : std::string();
}

bool hasIndex(const Json& table, const Json& index) {
    for (const Json& other : at(table, "indexes"))
        if (other == index)
            return true;
    return false;
}

// What `is` lacks of the table that is wanted.
void compareTables(const std::string& name, const Json& wanted, const Json& is,
                   std::vector<std::string>& differences) {
    if (!is.is_object())
        return differences.push_back("there is no table " + name);
    for (const auto& [column, declared] : wanted["columns"].items()) {
        const Json& other = at(at(is, "columns"), column);
        const std::string type = declared["type"].get<std::string>();
        if (!other.is_object())
            differences.push_back("there is no column " + name + '.' + column);
        else if (baseTypeOf(at(other, "type")) != type)
            differences.push_back(name + '.' + column + " is not of the type " + type);
    }
    for (const Json& index : at(wanted, "indexes"))
        if (!hasIndex(is, index))
            differences.push_back(name + " has no index " + index.dump());
}

std::string lineOf(const std::vector<std::string>& differences) {
    std::string line = "its schema is another one: ";
    for (std::size_t i = 0; i < differences.size() && i < mostDifferences; ++i)
        line += (i > 0 ? ", " : "") + differences[i];
    if (differences.size() > mostDifferences)
        line += ", and " + std::to_string(differences.size() - mostDifferences) + " more";
    return line;
}

} // namespace

Json clusterSchemaOf(const Schema& schema) {
    Json tables = ownTables();
    for (const Table& table : schema.tables())
        if (table.isShared())
            tables[table.name] = sharedTableOf(table);
    return Json{{"name", clusterDatabase}, {"version", schemaVersion}, {"tables", std::move(tables)}};
}

std::string complaintOfSharedTables(const Schema& schema) {
    const Json own = ownTables();
    for (const Table& table : schema.tables())
        if (table.isShared() && own.contains(table.name))
            return "the table " + table.name + " can't be shared: a cluster has one of its own by that name";
    return {};
}

std::string complaintOfSchema(const Schema& schema, const Json& answer) {
    std::vector<std::string> differences;
    const Json wanted = clusterSchemaOf(schema);
    for (const auto& [name, table] : wanted["tables"].items())
        compareTables(name, table, at(at(answer, "tables"), name), differences);
    return differences.empty() ? std::string() : lineOf(differences);
}

} // namespace store
