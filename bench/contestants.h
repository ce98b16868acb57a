#pragma once

#include <memory>
#include <string>

namespace bench {

// A store that keeps one cell on the disk.
class Contestant {
public:
    virtual ~Contestant() = default;

    // Changes the cell; returns when it is durable. Throws on failure.
    virtual void commit(bool value) = 0;
};

// `where` is a file for "SQLite" (a copy of the store's) and "fdatasync" (made), and a socket for "horad"
// (the store), "redis", "redis in 3" and "ovsdb". Throws for any other.
//
// Redis and ovsdb are asked once a commit. The store is asked three times, and so is redis where it is "in
// 3": to begin, to write and to commit, each time when the answer before is here.
std::unique_ptr<Contestant> makeContestant(const std::string& who, const std::string& where);

} // namespace bench
