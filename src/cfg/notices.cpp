#include "cfg/notices.h"

#include <algorithm>
#include <utility>

namespace orv::cfg {

namespace {

// A store has some dozens of tables. From this many names on, duplicates are dropped. A peer that exceeds
// noticeLimit is faulty.
constexpr std::size_t unmergedNotices = 1000;
constexpr std::size_t noticeLimit = 128 * 1024; // bytes of memory
constexpr std::size_t longestName = 63;         // bytes of a table's name, in the store's schema
static_assert(unmergedNotices * (sizeof(std::string) + longestName) < noticeLimit,
              "duplicates alone do not make a peer faulty");

} // namespace

bool Notices::keep(const velta::NameList& tables) {
    for (const std::string& table : tables) {
        if (tables_.size() >= unmergedNotices &&
            std::find(tables_.begin(), tables_.end(), table) != tables_.end())
            continue;
        tables_.push_back(table);
        bytes_ += sizeof(std::string) + table.size();
        if (bytes_ > noticeLimit)
            return false;
    }
    return true;
}

velta::NameList Notices::take() {
    bytes_ = 0;
    return std::exchange(tables_, {});
}

} // namespace orv::cfg
