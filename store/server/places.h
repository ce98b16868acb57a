#pragma once

#include "store/server/peer.h"

#include <cstddef>
#include <map>

#include <sys/types.h>

namespace store {

// Who may come in beside those who are here. Root and the server's own user find a place whatever others do,
// and no other user takes all that is left.
class Places {
public:
    struct Limits {
        std::size_t all = 128;
        std::size_t kept = 16;    // of them for root and the server's own user
        std::size_t oneUser = 56; // at most, of any other user
    };

    explicit Places(const Limits& limits) : limits_(limits) {}

    // Null, or why there is no place.
    const char* refusal(const Peer& peer) const;
    void take(uid_t user) { ++byUser_[user], ++taken_; }
    void giveBack(uid_t user);

private:
    std::size_t of(uid_t user) const;

    const Limits limits_;
    std::map<uid_t, std::size_t> byUser_;
    std::size_t taken_ = 0;
};

} // namespace store
