#include "store/server/places.h"

#include "orv/error.h"
#include "store/users.h"

namespace store {

static_assert(Places::Limits().kept + Places::Limits().oneUser < Places::Limits().all,
              "a user that has all it may have leaves places to others");

const char* Places::refusal(const Peer& peer) const {
    if (taken_ >= limits_.all)
        return "all places are taken";
    if (isRootOrOwn(peer.user))
        return nullptr;
    if (taken_ >= limits_.all - limits_.kept)
        return "the places that are left are kept for root";
    if (of(peer.user) >= limits_.oneUser)
        return "one user has all the places that it may have";
    return nullptr;
}

void Places::giveBack(uid_t user) {
    const auto found = byUser_.find(user);
    ORV_ASSERT(taken_ > 0 && found != byUser_.end());
    --taken_;
    if (--found->second == 0)
        byUser_.erase(found);
}

std::size_t Places::of(uid_t user) const {
    const auto found = byUser_.find(user);
    return found == byUser_.end() ? 0 : found->second;
}

} // namespace store
