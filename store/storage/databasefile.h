#pragma once

#include "store/fileid.h"
#include "store/leftovers.h"

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace store {

// Which of a database's files are no longer those that SQLite has open.
enum class Displaced {
    Nothing,
    Log,      // the write-ahead log or its index was removed or replaced
    LogCut,   // the log is shorter than what was written to it
    Database, // the database itself was removed, moved or replaced
};

// The file of a database, and the exclusive right to it: the file stays locked against a second server as
// long as this object lives. It must be made before SQLite opens the file and destroyed after SQLite has
// closed it, because closing any descriptor of the file drops SQLite's own locks on it.
class DatabaseFile {
public:
    // An empty path makes a file in memory that no other process finds. Throws StorageError, also if another
    // user could have put the file there.
    explicit DatabaseFile(const std::string& path);
    ~DatabaseFile();
    DatabaseFile(const DatabaseFile&) = delete;
    DatabaseFile& operator=(const DatabaseFile&) = delete;

    const std::string& path() const { return path_; }
    bool inMemory() const { return scratch_ != nullptr; }
    // For people.
    std::string name() const { return inMemory() ? "memory" : path_; }
    const std::string& logPath() const { return log_.path; }
    // The database, its log and the log's index, where SQLite has them; none in memory.
    std::vector<std::string> watched() const;

    // Checks who owns SQLite's files beside the database; to be called before SQLite opens them. Throws
    // StorageError.
    void checkCompanions() const;
    // Remembers which files SQLite has just opened or made. Throws StorageError if they are not those that
    // were checked.
    void recordCompanions();
    // Whether a later start would find those files, with at least `logBytes` bytes in the log. Allocates no
    // memory.
    Displaced displaced(std::int64_t logBytes) const;
    // Whether the log is shorter than that. Cheaper than displaced().
    bool logIsCut(std::int64_t logBytes) const;
    // Renames a log that another program put in the place of SQLite's; with `ownToo`, SQLite's own one as
    // well. Returns the new path, empty if there was no such log. Throws StorageError.
    std::string setLogAside(bool ownToo) const;

    // Removes the name of a file in memory, to be called once SQLite has opened everything: without a name it
    // is gone with the process, however that ends. A file on disk keeps its name.
    void dropName();

private:
    // A path, and which file was found there.
    struct Found {
        std::string path;
        FileId file;
    };

    void openLocked();
    void makeScratch();
    bool isInPlace() const;

    std::string path_;
    FileId file_;
    std::unique_ptr<ScratchFolder> scratch_; // of a file in memory
    int descriptor_ = -1;
    Found log_;
    Found index_;
    std::string journalPath_;
};

} // namespace store
