#pragma once

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/types.h>

namespace store {

// Tells a file from every other one that exists at the same time, whatever its path.
struct FileId {
    dev_t device = 0;
    ino_t inode = 0;

    FileId() = default;
    explicit FileId(const struct stat& status) : device(status.st_dev), inode(status.st_ino) {}
    explicit FileId(const struct statx& status)
        : device(makedev(status.stx_dev_major, status.stx_dev_minor)), inode(status.stx_ino) {}

    bool operator==(const FileId& other) const { return device == other.device && inode == other.inode; }
    bool operator!=(const FileId& other) const { return !(*this == other); }
};

} // namespace store
