#pragma once

#include "support/rawclient.h"
#include "velta/namelist.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace fuzz {

using Row = std::vector<velta::Value>; // in the order of the columns

// What there is to know of a table beside its rows.
struct Shape {
    velta::NameList columns;
    Row defaults;
    bool singleRow = false;
};

// A table as it should be, in simple containers.
struct Table {
    bool hasColumn(const std::string& column) const { return find(column).has_value(); }
    bool differsFrom(const Table& other) const;
    // The first row that holds the key, in Id order.
    std::optional<std::int64_t> rowWith(const std::string& column, const std::string& key) const;
    // False when the column can't hold the value.
    [[nodiscard]] bool setCells(std::int64_t id, const velta::ValueList& values);
    // Adds a row with the columns' defaults. False if there is one with that Id already.
    [[nodiscard]] bool addRow(std::int64_t id);

    std::shared_ptr<const Shape> shape;
    std::map<std::int64_t, std::shared_ptr<const Row>> rows; // shared with the versions before

private:
    std::optional<std::size_t> find(const std::string& column) const;
};

using Tables = std::map<std::string, Table>;

// The tables as one commit left them, and all their cells as they travel.
struct Commit {
    Tables tables;
    std::string cells;
};
using Version = std::shared_ptr<const Commit>;

Version makeVersion(const Tables& tables);
// What is committed in the store.
Tables committedTables(store::Database& database);
std::string cellsOf(store::Database& database);
// Commits that again.
void restore(store::Database& database, const Tables& tables);

// Whether an answer to a reading request is what these tables give.
bool answers(const Tables& tables, const velta::protocol::Request& request, const Answer& answer);
// Carries out a write that the store says it did. False when it could not.
[[nodiscard]] bool write(Tables& tables, const velta::protocol::Request& request, std::uint32_t number);

} // namespace fuzz
