#pragma once

#include "store/leftovers.h"

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <sys/types.h>

namespace store {

// Which of a database's files are no more what SQLite has open.
enum class Displaced {
    Nothing,
    Log,      // the write-ahead log or its index was removed or replaced
    LogCut,   // the log is shorter than what was written to it
    Database, // the database itself was removed, moved or replaced
};

// The file that a database lies in, and the right to it: it stays locked against a second server for as long
// as this lives. It must be made before SQLite opens the file and end after SQLite has closed it, since
// closing any descriptor of the file would drop SQLite's own locks on it.
class DatabaseFile {
public:
    // An empty path is a file in memory that nobody else finds. Throws StorageError, also where another user
    // could have laid the file down.
    explicit DatabaseFile(const std::string& path);
    ~DatabaseFile();
    DatabaseFile(const DatabaseFile&) = delete;
    DatabaseFile& operator=(const DatabaseFile&) = delete;

    const std::string& path() const { return path_; }
    bool inMemory() const { return scratch_ != nullptr; }
    // For a person.
    std::string name() const { return inMemory() ? "memory" : path_; }
    const std::string& logPath() const { return log_.path; }
    // The database, its log and the log's index, where SQLite has them; none in memory.
    std::vector<std::string> watched() const;

    // Whose SQLite's files beside the database are. Before SQLite opens them. Throws StorageError.
    void checkCompanions() const;
    // Remembers which files SQLite has just opened or made. Throws StorageError where they are not those that
    // were checked.
    void recordCompanions();
    // Whether a later start would find those files, with so many bytes in the log at least. It allocates no
    // memory.
    Displaced displaced(std::int64_t logBytes) const;
    // Whether the log has fewer bytes: the cheapest look.
    bool logIsCut(std::int64_t logBytes) const;
    // Moves a log away that lies in the place of the one that SQLite had, or that very one too. Returns its
    // new path, empty where there was none. Throws StorageError.
    std::string setLogAside(bool ownToo) const;

    // Once SQLite has opened everything, a file in memory needs no name any more: it is gone with the
    // process, however that ends. A file on disk keeps its name.
    void dropName();

private:
    // A path, and which file was found there.
    struct Found {
        std::string path;
        dev_t device = 0;
        ino_t inode = 0;
    };

    void openLocked();
    void makeScratch();
    bool isInPlace() const;

    std::string path_;
    dev_t device_ = 0;
    ino_t inode_ = 0;
    std::unique_ptr<ScratchFolder> scratch_; // of a file in memory
    int descriptor_ = -1;
    Found log_;
    Found index_;
    std::string journalPath_;
};

} // namespace store
