#include "store/storage/databasefile.h"

#include "store/storage/ownership.h"
#include "store/storage/sqlite.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <system_error>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace store {

namespace {

// Where files are kept in memory; /tmp on a system without /dev/shm.
constexpr const char* memoryDirectories[] = {"/dev/shm", "/tmp"};
constexpr const char* scratchPrefix = "cfgserver.";
constexpr const char* scratchName = "database";
// The endings of SQLite's files beside a database. There is a journal only while the database is new.
constexpr const char* suffixes[] = {"", "-wal", "-shm", "-journal"};

std::vector<std::string> scratchFiles() {
    std::vector<std::string> names;
    for (const char* suffix : suffixes)
        names.push_back(std::string(scratchName) + suffix);
    return names;
}

// The path without symbolic links: SQLite puts its files beside the real file.
std::string realPath(const std::string& path) {
    struct Free {
        void operator()(char* text) const { std::free(text); } // NOLINT: realpath() took it with malloc()
    };
    const std::unique_ptr<char, Free> real(realpath(path.c_str(), nullptr));
    return real ? real.get() : path;
}

// Which file is at a path, and how long it is. The file's times are left out on purpose: once somebody has
// read them, the kernel gives the file a new time at the next write, and the sync after it has to write the
// inode as well.
bool look(const std::string& path, int flags, struct statx& status) {
    return statx(AT_FDCWD, path.c_str(), flags, STATX_INO | STATX_SIZE, &status) == 0;
}

bool isShorter(const struct statx& status, std::int64_t bytes) {
    return status.stx_size < static_cast<std::uint64_t>(bytes);
}

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
    checkOwner(path_, "database " + path_);
    const int noLink = isInForeignFolder(path_) ? O_NOFOLLOW : 0;
    descriptor_ = open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | noLink, 0600);
    if (descriptor_ < 0)
        throw StorageError("database " + path_ + " can't be opened: " + std::strerror(errno));
    try {
        struct stat status {};
        if (fstat(descriptor_, &status) != 0 || !S_ISREG(status.st_mode))
            throw StorageError("database " + path_ + " is not a regular file");
        checkOwner(status, "database " + path_);
        file_ = FileId(status);
        if (flock(descriptor_, LOCK_EX | LOCK_NB) != 0)
            throw StorageError("database " + path_ + " is in use by another server");
        const std::string real = realPath(path_);
        log_.path = real + "-wal";
        index_.path = real + "-shm";
        journalPath_ = real + "-journal";
        checkCompanions();
    } catch (...) {
        close(descriptor_);
        throw;
    }
}

std::vector<std::string> DatabaseFile::watched() const {
    if (inMemory())
        return {};
    return {path_, log_.path, index_.path};
}

// There is a journal only while a database is new, but SQLite would roll back any that lies there.
void DatabaseFile::checkCompanions() const {
    if (inMemory())
        return;
    for (const std::string* companion : {&log_.path, &index_.path, &journalPath_})
        checkOwner(*companion, "database " + path_ + ": " + *companion);
}

void DatabaseFile::recordCompanions() {
    if (inMemory())
        return;
    if (!isInPlace())
        throw StorageError("database " + path_ + " was replaced while it was opened");
    checkCompanions();
    for (Found* companion : {&log_, &index_}) {
        struct statx status {};
        if (!look(companion->path, 0, status))
            throw StorageError("database " + path_ + ": " + companion->path + ": " + std::strerror(errno));
        companion->file = FileId(status);
    }
}

bool DatabaseFile::isInPlace() const {
    struct statx status {};
    return look(path_, 0, status) && FileId(status) == file_;
}

Displaced DatabaseFile::displaced(std::int64_t logBytes) const {
    if (inMemory())
        return Displaced::Nothing;
    if (!isInPlace())
        return Displaced::Database;
    struct statx log {};
    struct statx index {};
    const bool there = look(log_.path, 0, log) && FileId(log) == log_.file && look(index_.path, 0, index) &&
                       FileId(index) == index_.file;
    if (!there)
        return Displaced::Log;
    return isShorter(log, logBytes) ? Displaced::LogCut : Displaced::Nothing;
}

bool DatabaseFile::logIsCut(std::int64_t logBytes) const {
    struct statx log {};
    return !inMemory() && (!look(log_.path, 0, log) || isShorter(log, logBytes));
}

std::string DatabaseFile::setLogAside(bool ownToo) const {
    struct statx status {};
    if (!look(log_.path, AT_SYMLINK_NOFOLLOW, status) || (!ownToo && FileId(status) == log_.file))
        return {};
    std::string aside = log_.path + ".aside";
    for (int i = 1; look(aside, AT_SYMLINK_NOFOLLOW, status); ++i)
        aside = log_.path + ".aside" + std::to_string(i);
    if (rename(log_.path.c_str(), aside.c_str()) != 0)
        throw StorageError("database " + path_ + ": " + log_.path +
                           " can't be moved away: " + std::strerror(errno));
    return aside;
}

void DatabaseFile::makeScratch() {
    std::string reason;
    for (const char* directory : memoryDirectories) {
        (void)removeLeftovers(directory, scratchPrefix, scratchFiles());
        try {
            scratch_ = std::make_unique<ScratchFolder>(directory, scratchPrefix);
            path_ = scratch_->path() + '/' + scratchName;
            return;
        } catch (const std::system_error& error) {
            reason = error.what();
        }
    }
    throw StorageError("no place in memory for the database: " + reason);
}

void DatabaseFile::dropName() {
    if (!inMemory() || path_.empty())
        return;
    for (const char* suffix : suffixes)
        (void)unlink((path_ + suffix).c_str()); // it may never have been made
    (void)rmdir(scratch_->path().c_str());
    path_.clear();
}

} // namespace store
