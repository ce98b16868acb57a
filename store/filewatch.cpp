#include "store/filewatch.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include <sys/inotify.h>
#include <unistd.h>

namespace store {

namespace {

// A file that is still open somewhere reports its removal as a change of an attribute: its link count falls.
constexpr std::uint32_t watchedEvents = IN_ATTRIB | IN_MOVE_SELF | IN_DELETE_SELF | IN_DONT_FOLLOW;

} // namespace

FileWatch::FileWatch()
    : descriptor_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)), failure_(descriptor_ < 0 ? errno : 0) {}

FileWatch::~FileWatch() {
    if (descriptor_ >= 0)
        close(descriptor_);
}

bool FileWatch::add(const std::string& path) {
    if (descriptor_ < 0) {
        errno = failure_;
        return false;
    }
    const int watch = inotify_add_watch(descriptor_, path.c_str(), watchedEvents);
    if (watch < 0)
        return false;
    const auto [known, isNew] = watches_.emplace(path, watch);
    if (!isNew && known->second != watch) {
        (void)inotify_rm_watch(descriptor_, known->second); // fails where its file is gone
        known->second = watch;
    }
    return true;
}

bool FileWatch::takeChanges() {
    bool changed = false;
    std::array<char, 4096> bytes; // filled by read
    ssize_t size = 0;
    while ((size = read(descriptor_, bytes.data(), bytes.size())) > 0) {
        inotify_event event{};
        for (std::size_t at = 0; at < static_cast<std::size_t>(size); at += sizeof event + event.len) {
            std::memcpy(&event, bytes.data() + at, sizeof event);
            if ((event.mask & IN_IGNORED) != 0)
                forget(event.wd);
            else
                changed = true; // lost events count as well
        }
    }
    return changed;
}

void FileWatch::forget(int watch) {
    for (auto known = watches_.begin(); known != watches_.end();)
        known = known->second == watch ? watches_.erase(known) : std::next(known);
}

} // namespace store
