#include "tools/cfgctl/idset.h"

#include <algorithm>

namespace tools::cfgctl {

namespace {

// Late ones wait until they are so many, or a part of the others, so that merging them in costs little each.
constexpr std::size_t leastMerge = 4096;
constexpr std::size_t mergedPart = 8;

} // namespace

bool IdSet::insert(std::uint32_t id) {
    if (sorted_.empty() || id > sorted_.back()) { // the late ones are below it too
        sorted_.push_back(id);
        return true;
    }
    if (contains(id))
        return false;
    late_.insert(id);
    if (late_.size() >= std::max(leastMerge, sorted_.size() / mergedPart))
        merge();
    return true;
}

bool IdSet::contains(std::uint32_t id) const {
    return std::binary_search(sorted_.begin(), sorted_.end(), id) || late_.count(id) > 0;
}

void IdSet::merge() {
    const auto middle = static_cast<std::ptrdiff_t>(sorted_.size());
    sorted_.insert(sorted_.end(), late_.begin(), late_.end());
    std::inplace_merge(sorted_.begin(), sorted_.begin() + middle, sorted_.end());
    late_.clear();
}

} // namespace tools::cfgctl
