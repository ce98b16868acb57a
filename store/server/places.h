#pragma once

#include "store/server/peer.h"

#include <cstddef>
#include <map>

#include <sys/types.h>

namespace store {

// Limits how many clients are connected at a time. Some places are kept for root and the server's own user,
// and no other user can take all of the rest.
class Places {
public:
    struct Limits {
        std::size_t all = 128;
        std::size_t kept = 16;    // of them for root and the server's own user
        std::size_t oneUser = 56; // at most, for any other user
    };

    explicit Places(const Limits& limits) : limits_(limits) {}

    // Null if the peer may come in, otherwise the reason why not.
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
