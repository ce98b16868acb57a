#pragma once

#include "tools/storetables.h"

#include <nlohmann/json.hpp>

namespace cfgctl {

// The one row of a single-row table as an object, the rows of any other as a list of objects.
nlohmann::ordered_json rowsAsJson(bool singleRow, const Rows& rows);

// Throws Refused for a text that is no UTF-8: JSON can't hold it, and a dump that altered it would be no
// copy.
void requireUtf8(const velta::protocol::TableInfo& table, const Rows& rows);

} // namespace cfgctl
