#pragma once

#include <memory>
#include <string>

namespace bench {

// Somebody who keeps one cell on the disk.
class Contestant {
public:
    virtual ~Contestant() = default;

    // Changes the cell; returns when it is durable. Throws where that fails.
    virtual void commit(bool value) = 0;
};

// `where` is a file for "SQLite" (a copy of the store's) and "fdatasync" (made), and a socket for "horad"
// (the store), "redis" and "ovsdb". Throws for any other.
std::unique_ptr<Contestant> makeContestant(const std::string& who, const std::string& where);

} // namespace bench
