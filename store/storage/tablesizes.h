#pragma once

#include "store/storage/schema.h"
#include "store/storage/sqlite.h"

#include <cstdint>
#include <string>
#include <vector>

namespace store {

inline constexpr std::int64_t tableLimit = 64 * 1024 * 1024; // bytes of cells of one table

// The limit counts the bytes of a cell on the wire.
inline constexpr std::int64_t cellOverhead = 5; // a number takes no more; a text adds its own bytes

// How many bytes of cells each table holds: in the last commit, and what the open transaction adds. Tables go
// by their index in the schema.
class TableSizes {
public:
    explicit TableSizes(std::int64_t limit) : limit_(limit) {}

    // Reads all tables. Throws StorageError.
    void count(Connection& connection, const Schema& schema);

    // "64 MiB"
    std::string limitText() const;
    // Whether the table may grow by that many bytes on top of what the open transaction has added. A table
    // that is too large already may stay as it is, or shrink.
    bool mayGrow(std::size_t table, std::int64_t bytes) const;
    std::int64_t of(std::size_t table) const { return sizes_[table].committed + sizes_[table].added; }

    void add(std::size_t table, std::int64_t bytes) noexcept { sizes_[table].added += bytes; }
    void keep() noexcept;
    void forget() noexcept;

private:
    struct Size {
        std::int64_t committed = 0;
        std::int64_t added = 0;
    };

    std::int64_t limit_;
    std::vector<Size> sizes_;
};

} // namespace store
