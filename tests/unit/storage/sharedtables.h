#pragma once

#include "store/storage/database.h"
#include "unit/storage/testtables.h"

#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

// A schema of which some columns are shared, and what other devices do to it.
inline constexpr const char* sharedTables =
    "CREATE TABLE Plans (Id INTEGER PRIMARY KEY,"
    " Name TEXT NOT NULL DEFAULT 'none' SHARED, Status SWITCH NOT NULL DEFAULT 0,"
    " Start TIME NOT NULL DEFAULT '' SHARED);"
    "CREATE TABLE Globals (Enable SWITCH NOT NULL DEFAULT 0, Always SWITCH NOT NULL DEFAULT 0 SHARED);"
    "CREATE TABLE Other (Enable SWITCH NOT NULL DEFAULT 0);";

inline store::SharedUpdate planUpdate(const std::string& uuid, std::int64_t id, const std::string& name,
                                      const std::string& start) {
    return {0, uuid, store::SharedUpdate::Values{id, {textValue(name), textValue(start)}}};
}

// Of a row that is known.
inline store::SharedUpdate planChange(const std::string& uuid, const std::optional<std::string>& name,
                                      const std::optional<std::string>& start) {
    store::SharedUpdate::Values values{std::nullopt, {std::nullopt, std::nullopt}};
    if (name)
        values.cells[0] = textValue(*name);
    if (start)
        values.cells[1] = textValue(*start);
    return {0, uuid, values};
}

inline store::SharedUpdate removal(const std::string& uuid) {
    return {0, uuid, std::nullopt};
}

inline store::SharedUpdate globalsUpdate(const std::string& uuid, int always) {
    return {1, uuid, store::SharedUpdate::Values{std::nullopt, {switchValue(always)}}};
}

inline store::SharedRows::Applied applyTo(store::Database& database, const store::SharedUpdates& updates) {
    store::SharedRows::Applied applied;
    const auto result = database.sharedRows().apply(updates, applied);
    EXPECT_TRUE(result.ok()) << result.strerror();
    return applied;
}

inline std::vector<store::SharedRow> rowsOf(store::Database& database, std::size_t table) {
    std::vector<store::SharedRow> rows;
    const auto result = database.sharedRows().all(rows);
    EXPECT_TRUE(result.ok()) << result.strerror();
    std::vector<store::SharedRow> found;
    for (store::SharedRow& row : rows)
        if (row.table == table)
            found.push_back(std::move(row));
    return found;
}

// "1 Night 0 22:00" each.
inline std::vector<std::string> plansIn(store::Database& database) {
    std::vector<std::string> rows;
    for (const velta::ValueList& row : tableOf(database, "Plans"))
        rows.push_back(row.getValue("Id").getText() + ' ' + row.getValue("Name").getText() + ' ' +
                       row.getValue("Status").getText() + ' ' + row.getValue("Start").getText());
    return rows;
}

inline void insertPlan(store::Database& database, int id, const std::string& name, int status = 0) {
    velta::ValueList values = cell("Id", integerValue(id));
    values.add("Name", textValue(name));
    values.add("Status", switchValue(status));
    std::uint32_t given = 0;
    EXPECT_TRUE(database.transaction().insert("Plans", values, given).ok());
    EXPECT_EQ(commit(database), velta::NameList{"Plans"});
}

inline void removePlan(store::Database& database, int id) {
    EXPECT_TRUE(database.transaction().remove("Plans", "Id", std::to_string(id)).ok());
    EXPECT_EQ(commit(database), velta::NameList{"Plans"});
}

inline void setStatus(store::Database& database, int id, int status) {
    EXPECT_TRUE(database.transaction()
                    .update("Plans", "Id", std::to_string(id), cell("Status", switchValue(status)))
                    .ok());
    EXPECT_EQ(commit(database), velta::NameList{"Plans"});
}
