#pragma once

#include <string>

namespace store {

// The file that a database lies in, and the right to it: it stays locked against a second server for as long
// as this lives. It must be made before SQLite opens the file and end after SQLite has closed it, since
// closing any descriptor of the file would drop SQLite's own locks on it.
class DatabaseFile {
public:
    // An empty path is a file in memory that nobody else finds. Throws StorageError.
    explicit DatabaseFile(const std::string& path);
    ~DatabaseFile();
    DatabaseFile(const DatabaseFile&) = delete;
    DatabaseFile& operator=(const DatabaseFile&) = delete;

    const std::string& path() const { return path_; }
    bool inMemory() const { return !scratchDirectory_.empty(); }
    // For a person.
    std::string name() const { return inMemory() ? "memory" : path_; }
    // Whether a later start would find this very file: not once it was removed, moved away or replaced.
    bool isInPlace() const;
    // Once SQLite has opened everything, a file in memory needs no name any more: it is gone with the
    // process, however that ends. A file on disk keeps its name.
    void dropName();

private:
    void openLocked();
    void makeScratch();

    std::string path_;
    std::string scratchDirectory_;
    int descriptor_ = -1;
};

} // namespace store
