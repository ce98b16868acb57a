#pragma once

#include "tools/table.h"
#include "velta/protocol/message.h"

#include <nlohmann/json_fwd.hpp>
#include <vector>

// What a store says of a table's columns.
namespace tools::cfgctl {

using Descriptions = std::vector<velta::protocol::ColumnDescription>;

// With a header: name, kind, range of numbers, default.
std::vector<TextRow> columnsAsText(const Descriptions& columns);
// What a column has not, a range or a default, has no member.
nlohmann::ordered_json columnsAsJson(const Descriptions& columns);

} // namespace tools::cfgctl
