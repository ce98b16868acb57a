#include "cfg/notices.h"

#include <algorithm>
#include <utility>

namespace orv::cfg {

namespace {

// Notices name tables, of which a store has some dozens. From so many on, a table that waits already is not
// kept again; whoever then still fills the bytes is no store.
constexpr std::size_t unmergedNotices = 1000;
constexpr std::size_t noticeLimit = 128 * 1024; // bytes of memory

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
