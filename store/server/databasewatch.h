#pragma once

#include "store/filewatch.h"
#include "store/storage/database.h"
#include "velta/net/eventdispatcher.h"

#include <cstdint>

namespace store {

// Tells the database at once when another program touched its files. By itself it notices that only at a
// commit.
class DatabaseWatch {
public:
    // A file that can't be watched is logged; the database still checks it at each commit.
    DatabaseWatch(velta::net::EventDispatcher& dispatcher, Database& database);
    ~DatabaseWatch();
    DatabaseWatch(const DatabaseWatch&) = delete;
    DatabaseWatch& operator=(const DatabaseWatch&) = delete;

    // Watches the database's present files, if it was reopened since the last call.
    void followFiles();

private:
    void look();

    velta::net::EventDispatcher& dispatcher_;
    Database& database_;
    FileWatch watch_;
    std::uint64_t timesOpened_ = 0; // of the files that are watched
    bool complained_ = false;
};

} // namespace store
