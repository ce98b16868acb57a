#pragma once

#include "tools/storetables.h"
#include "velta/value.h"

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

// What lies between two readings of a table.
namespace tools::cfgctl {

struct Change {
    enum class Kind { Cell, RowAdded, RowRemoved };

    Kind kind = Kind::Cell;
    std::string table;
    std::optional<std::uint32_t> id; // none in a single-row table
    std::string column;              // of a cell
    velta::Value before;             // of a cell
    velta::Value after;              // of a cell
    velta::ValueList row;            // that was added
};

// In Id order. The rows of a table are in Id order too.
std::vector<Change> diff(const velta::protocol::TableInfo& table, const Rows& before, const Rows& after);

// Without the end of the line. "WlanTimePlans.3 TimePlanStatus: 0 -> 1", "WlanTimePlans.4 removed".
std::string asLine(const Change& change);
// With `time`, if it is not empty, as the first member.
nlohmann::ordered_json asJson(const Change& change, const std::string& time = {});

} // namespace tools::cfgctl
