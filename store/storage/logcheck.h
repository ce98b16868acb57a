#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace store {

// What SQLite will not recover from a write-ahead log, though it was committed.
struct LogLoss {
    std::uint64_t kept = 0;    // commits in front of the damage
    std::uint64_t lost = 0;    // commits behind it that were complete, at least
    std::int64_t position = 0; // of the damage, in bytes

    // For a log line.
    std::string text() const;
};

// Reads the log of a database that is not open. A last transaction that is torn is normal after a power cut:
// nobody was told that it is kept. Complete commits behind a damaged one are a loss.
std::optional<LogLoss> lossIn(const std::string& logPath);

} // namespace store
