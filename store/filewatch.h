#pragma once

#include <map>
#include <string>

namespace store {

// Reports when one of a few files is removed, replaced or moved, or when its permissions change. It uses
// inotify: other files, and writes to these, do not wake the process.
//
// It reports that something happened, not what: the caller has to look at the files. It does not notice when
// a folder above them is moved. Where inotify has no room for another watch, add() fails and the file is not
// watched.
class FileWatch {
public:
    FileWatch();
    ~FileWatch();
    FileWatch(const FileWatch&) = delete;
    FileWatch& operator=(const FileWatch&) = delete;

    // Watches the file that is at the path now; of a symbolic link, the link itself. False, with errno, if
    // that fails. Adding a path again ends the watch on the file that was there before.
    [[nodiscard]] bool add(const std::string& path);

    // Readable when something happened; -1 if inotify gave no descriptor.
    int descriptor() const { return descriptor_; }
    // Whether something happened to one of the files since the last call. Never waits.
    [[nodiscard]] bool takeChanges();

private:
    void forget(int watch);

    int descriptor_;
    int failure_ = 0; // why there is no descriptor
    std::map<std::string, int> watches_;
};

} // namespace store
