#pragma once

#include "tools/table.h"
#include "velta/protocol/message.h"

#include <nlohmann/json_fwd.hpp>
#include <set>
#include <string>
#include <vector>

// What a store says of a table's columns.
namespace tools::cfgctl {

using Descriptions = std::vector<velta::protocol::ColumnDescription>;
using Names = std::set<std::string>;

// With a header: name, kind, range of numbers, default, and whether it is among the shared ones.
std::vector<TextRow> columnsAsText(const Descriptions& columns, const Names& shared);
// What a column has not, a range or a default, has no member.
nlohmann::ordered_json columnsAsJson(const Descriptions& columns, const Names& shared);

} // namespace tools::cfgctl
