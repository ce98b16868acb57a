#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace store {

// Commits that SQLite will not recover from a damaged write-ahead log.
struct LogLoss {
    std::uint64_t kept = 0;    // commits before the damage
    std::uint64_t lost = 0;    // complete commits after it, at least
    std::int64_t position = 0; // of the damage, in bytes

    // For a log line.
    std::string text() const;
};

// Reads the log of a database that is not open. After a power cut it is normal that the last transaction is
// incomplete: no client was told that it is kept. Complete commits after a damaged one are a loss.
std::optional<LogLoss> lossIn(const std::string& logPath);

} // namespace store
