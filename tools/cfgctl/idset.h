#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <vector>

namespace tools::cfgctl {

// Many Ids, in little memory: those that come in rising order, as in a dump, cost 4 bytes each.
class IdSet {
public:
    // False where it was there.
    bool insert(std::uint32_t id);
    bool contains(std::uint32_t id) const;
    std::size_t size() const { return sorted_.size() + late_.size(); }

private:
    void merge();

    std::vector<std::uint32_t> sorted_;
    std::set<std::uint32_t> late_; // that came behind a larger one, until there are many
};

} // namespace tools::cfgctl
