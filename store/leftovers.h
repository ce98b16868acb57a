#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace store {

// Makes a new folder "PREFIXxxxxxx" in a directory and keeps it locked (flock) as long as this object lives.
// The lock distinguishes it from a folder that a killed process left behind. The destructor removes the
// folder if it is empty.
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

// Removes the scratch folders that killed processes left in a directory: those that belong to this process's
// user, that nobody has locked, and that hold only regular files with these names. Every other folder keeps
// all of its files. Follows no symbolic link. Returns how many folders were removed; one that can't be read
// or removed is skipped silently.
std::size_t removeLeftovers(const std::string& directory, const std::string& prefix,
                            const std::vector<std::string>& files);

} // namespace store
