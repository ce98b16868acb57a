#pragma once

#include <map>
#include <string>

namespace store {

// Tells when one of a few files is removed, replaced, moved away, or gets other rights. The kernel tells it
// by itself: nothing wakes the process for other files, or for what is written into these.
//
// It says that something happened, not what: whoever watches looks at the files then. A folder above them
// that is moved is not noticed. Where the kernel has no room left for another watch, files are not watched,
// and that is all.
class FileWatch {
public:
    FileWatch();
    ~FileWatch();
    FileWatch(const FileWatch&) = delete;
    FileWatch& operator=(const FileWatch&) = delete;

    // Watches what is at that path now, a link itself and not what it leads to. False, with errno, where it
    // can't. A path that is added again is no longer watched for what it led to before.
    [[nodiscard]] bool add(const std::string& path);

    // Readable when something happened; -1 where the kernel had none.
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
