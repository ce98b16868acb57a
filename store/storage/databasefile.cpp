#include "store/storage/databasefile.h"

#include "store/storage/sqlite.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace store {

namespace {

// Where memory looks like files; /tmp where a system lacks it.
constexpr const char* memoryDirectories[] = {"/dev/shm", "/tmp"};
// SQLite's files beside a database in WAL mode.
constexpr const char* suffixes[] = {"", "-wal", "-shm"};

} // namespace

DatabaseFile::DatabaseFile(const std::string& path) : path_(path) {
    if (path_.empty())
        makeScratch();
    else
        openLocked();
}

DatabaseFile::~DatabaseFile() {
    dropName();
    if (descriptor_ >= 0)
        close(descriptor_);
}

void DatabaseFile::openLocked() {
    descriptor_ = open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0600);
    const int reason = errno;
    struct stat status {};
    const bool regular = descriptor_ >= 0 && fstat(descriptor_, &status) == 0 && S_ISREG(status.st_mode);
    const bool locked = regular && flock(descriptor_, LOCK_EX | LOCK_NB) == 0;
    if (locked)
        return;
    const bool opened = descriptor_ >= 0;
    if (opened)
        close(descriptor_);
    if (!opened)
        throw StorageError("database " + path_ + " can't be opened: " + std::strerror(reason));
    throw StorageError("database " + path_ +
                       (regular ? " is in use by another server" : " is not a regular file"));
}

bool DatabaseFile::isInPlace() const {
    if (inMemory())
        return true;
    struct stat held {};
    struct stat found {};
    return fstat(descriptor_, &held) == 0 && stat(path_.c_str(), &found) == 0 &&
           held.st_dev == found.st_dev && held.st_ino == found.st_ino;
}

void DatabaseFile::makeScratch() {
    for (const char* directory : memoryDirectories) {
        std::string place = std::string(directory) + "/cfgserver.XXXXXX";
        if (mkdtemp(place.data()) == nullptr)
            continue;
        scratchDirectory_ = place;
        path_ = place + "/database";
        return;
    }
    throw StorageError(std::string("no place in memory for the database: ") + std::strerror(errno));
}

void DatabaseFile::dropName() {
    if (scratchDirectory_.empty() || path_.empty())
        return;
    for (const char* suffix : suffixes)
        (void)unlink((path_ + suffix).c_str()); // one that was never made is as good
    (void)rmdir(scratchDirectory_.c_str());
    path_.clear();
}

} // namespace store
