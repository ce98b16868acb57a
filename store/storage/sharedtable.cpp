#include "store/storage/sharedtable.h"

#include "store/storage/cells.h"

#include <map>

namespace store {

namespace {

// Of the run's current row, which has the table's columns in their order.
SharedCells cellsIn(const Table& table, const Statement::Run& run) {
    SharedCells cells;
    for (std::size_t i = 0; i < table.columns.size(); ++i)
        if (table.columns[i].shared)
            cells.push_back(valueIn(table.columns[i].type, run, static_cast<int>(i)));
    return cells;
}

} // namespace

velta::protocol::EResultCode addSharedRows(TableReader& reader, std::size_t table, ClusterMemory* memory,
                                           std::vector<SharedRow>& rows) {
    ConnectedTable& found = reader.at(table);
    std::map<std::int64_t, std::string> uuids;
    if (memory != nullptr)
        if (auto result = memory->uuidsOf(found.description.name, uuids); !result.ok())
            return result;
    const std::optional<std::size_t> idAt = found.description.indexOf(idColumn);
    Statement::Run run(found.statements.all());
    int step = run.step();
    for (; step == SQLITE_ROW; step = run.step()) {
        const std::int64_t id = idAt ? run.number(static_cast<int>(*idAt)) : singleRowId;
        const auto uuid = uuids.find(id);
        rows.push_back(
            {table, id, uuid == uuids.end() ? std::string() : uuid->second, cellsIn(found.description, run)});
    }
    return reader.resultOf(step);
}

} // namespace store
