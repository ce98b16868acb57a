#pragma once

#include "store/filewatch.h"
#include "store/storage/database.h"
#include "velta/net/eventdispatcher.h"

#include <cstdint>

namespace store {

// Tells the database when somebody touched its files, between commits too.
class DatabaseWatch {
public:
    // Where the kernel can't watch a file, that is logged: it is looked for at each commit all the same.
    DatabaseWatch(velta::net::EventDispatcher& dispatcher, Database& database);
    ~DatabaseWatch();
    DatabaseWatch(const DatabaseWatch&) = delete;
    DatabaseWatch& operator=(const DatabaseWatch&) = delete;

    // Follows the files that the database has now, if it was opened anew.
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
