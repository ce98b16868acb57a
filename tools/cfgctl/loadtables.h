#pragma once

#include "tools/storetables.h"

#include <chrono>
#include <cstddef>
#include <string>

namespace tools::cfgctl {

struct LoadOutcome {
    std::size_t written = 0; // rows, that were changed or added
    std::size_t removed = 0;
    std::chrono::milliseconds open{0}; // how long the transaction was held

    // "100 rows written, 2 removed, the transaction was open for 0.4 s"; empty where nothing was written.
    std::string text() const;
};

// Brings the store's tables to what the file says in one transaction, or changes nothing and throws Refused.
// If the store shares columns with other devices and the file changes those and others, there are two: the
// shared columns come first, and a failure of the second says that the first one is done.
// Keeps one table's rows at a time, and the Ids of all.
LoadOutcome loadTables(orv::cfg::ConfigClient& client, const std::string& path);

} // namespace tools::cfgctl
