// Reads any text as a file for `cfgctl load`.
#include "fuzz/input.h"
#include "support/loadedtables.h"
#include "tools/errors.h"
#include "tools/loadfile.h"

#include <nlohmann/json.hpp>
#include <optional>
#include <set>

namespace {

using tools::LoadCell;
using tools::LoadRow;
using LoadTable = fakes::LoadedTable;
using fuzz::require;

constexpr std::size_t errorLimit = 1024; // bytes; a person reads it

std::optional<std::vector<LoadTable>> parsed(const std::string& text) {
    try {
        return fakes::parsed(text).tables;
    } catch (const tools::Refused& error) {
        const std::size_t size = std::string(error.what()).size();
        require(size > 0 && size <= errorLimit, "a refusal has a reason, and a short one");
        return std::nullopt;
    }
}

nlohmann::ordered_json jsonOf(const LoadRow& row) {
    nlohmann::ordered_json object = nlohmann::ordered_json::object();
    for (const auto& [column, cell] : row.cells)
        std::visit([&, &name = column](const auto& value) { object[name] = value; }, cell);
    require(object.size() == row.cells.size(), "a column stands in a row once");
    return object;
}

nlohmann::ordered_json jsonOf(const LoadTable& table) {
    if (!table.list) {
        require(table.rows.size() == 1, "a row that stands for itself is one row");
        return jsonOf(table.rows.front());
    }
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const LoadRow& row : table.rows)
        list.push_back(jsonOf(row));
    return list;
}

bool same(const LoadTable& a, const LoadTable& b) {
    if (a.name != b.name || a.list != b.list || a.rows.size() != b.rows.size())
        return false;
    for (std::size_t i = 0; i < a.rows.size(); ++i)
        if (a.rows[i].cells != b.rows[i].cells)
            return false;
    return true;
}

void check(const std::vector<LoadTable>& tables) {
    nlohmann::ordered_json document = nlohmann::ordered_json::object();
    for (const LoadTable& table : tables)
        document[table.name] = jsonOf(table);
    require(document.size() == tables.size(), "a table stands in a file once");
    const std::optional<std::vector<LoadTable>> again = parsed(document.dump());
    require(again && again->size() == tables.size(), "what was read can be written and read again");
    for (std::size_t i = 0; i < tables.size(); ++i)
        require(same(tables[i], (*again)[i]), "what was read is read the same again");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::optional<std::vector<LoadTable>> tables = parsed(text);
    if (!tables)
        return 0;
    require(nlohmann::json::accept(text), "only JSON is taken");
    check(*tables);
    return 0;
}
