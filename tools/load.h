#pragma once

#include "tools/loadfile.h"
#include "tools/storetables.h"
#include "velta/valuelist.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// From what a file wants of a table to the writes that make it so.
namespace cfgctl {

struct WantedRow {
    std::optional<std::uint32_t> id; // none: the store gives one
    velta::ValueList cells;          // an Id is one of them
    std::string place;               // in the file, for an error text
};

// The file's rows of a table with the values that its columns take. Throws Refused, with the place, for what
// the table can't hold: an unknown column, a value of the wrong kind, an Id that stands there twice, a list
// of rows for a single-row table.
std::vector<WantedRow> wantedRows(const LoadTable& file, const Table& table);

struct Write {
    enum class Kind { WriteSingle, Update, Remove, Insert };

    Kind kind;
    std::uint32_t id = 0;   // of an update and a removal
    velta::ValueList cells; // of an update only those that differ
    std::string place;      // what asks for it, for an error text
};

// What to write, in this order, so that the table holds the wanted rows: nothing where it does.
std::vector<Write> planWrites(const Table& table, const Rows& current, const std::vector<WantedRow>& wanted);

// Brings the store's tables to what the file says in one transaction, or changes nothing and throws Refused.
void loadTables(orv::cfg::ConfigClient& client, const std::vector<LoadTable>& file);

} // namespace cfgctl
