#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace store {

// A new folder that is the process's own, "PREFIXxxxxxx" in a directory, locked (flock) for as long as this
// lives: the lock tells it from one that a killed process left behind. The folder is gone with this if it is
// empty then.
class ScratchFolder {
public:
    // Throws std::system_error.
    ScratchFolder(const std::string& directory, const std::string& prefix);
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::string& path() const { return path_; }

private:
    bool make(const std::string& pattern);

    std::string path_;
    int lock_ = -1;
};

// Removes the scratch folders in a directory that killed processes left: those of the process's own user that
// nobody has locked and that hold nothing but regular files of these names. All others stay as they are,
// whole. Follows no link. Returns how many were removed; what can't be looked at or removed stays, without a
// word.
std::size_t removeLeftovers(const std::string& directory, const std::string& prefix,
                            const std::vector<std::string>& files);

} // namespace store
