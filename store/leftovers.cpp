#include "store/leftovers.h"

#include "store/fileid.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string_view>
#include <system_error>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace store {

namespace {

constexpr std::string_view placeholder = "XXXXXX"; // what mkdtemp() replaces
constexpr int makeTries = 10;
constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

Directory openDirectory(int at, const char* name, int flags) {
    const int descriptor = openat(at, name, flags);
    if (descriptor < 0)
        return nullptr;
    Directory directory(fdopendir(descriptor));
    if (!directory)
        close(descriptor);
    return directory;
}

// Without "." and "..".
std::vector<std::string> entriesOf(DIR* directory) {
    std::vector<std::string> names;
    while (const dirent* entry = readdir(directory)) {
        std::string name = entry->d_name;
        if (name != "." && name != "..")
            names.push_back(std::move(name));
    }
    return names;
}

bool isScratchName(const std::string& name, const std::string& prefix) {
    return name.size() == prefix.size() + placeholder.size() && name.compare(0, prefix.size(), prefix) == 0;
}

// Whether the name still leads to the folder that is open.
bool leadsTo(int at, const char* name, int descriptor) {
    struct stat named {};
    struct stat held {};
    return fstatat(at, name, &named, AT_SYMLINK_NOFOLLOW) == 0 && fstat(descriptor, &held) == 0 &&
           FileId(named) == FileId(held);
}

bool isOwn(int descriptor) {
    struct stat status {};
    return fstat(descriptor, &status) == 0 && status.st_uid == geteuid();
}

bool isRegularFile(int at, const std::string& name) {
    struct stat status {};
    return fstatat(at, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(status.st_mode);
}

// Keeps the folder locked until it is removed, so that no other process removes it at the same time.
bool removeFolder(int at, const std::string& name, const std::vector<std::string>& files) {
    const Directory folder = openDirectory(at, name.c_str(), folderFlags);
    const int descriptor = folder ? dirfd(folder.get()) : -1;
    if (!folder || !isOwn(descriptor) || flock(descriptor, LOCK_EX | LOCK_NB) != 0 ||
        !leadsTo(at, name.c_str(), descriptor))
        return false;
    const std::vector<std::string> entries = entriesOf(folder.get());
    const bool known = std::all_of(entries.begin(), entries.end(), [&](const std::string& entry) {
        return std::find(files.begin(), files.end(), entry) != files.end() &&
               isRegularFile(descriptor, entry);
    });
    if (!known)
        return false;
    for (const std::string& entry : entries)
        (void)unlinkat(descriptor, entry.c_str(), 0); // if this fails, so does removing the folder
    return unlinkat(at, name.c_str(), AT_REMOVEDIR) == 0;
}

} // namespace

ScratchFolder::ScratchFolder(const std::string& directory, const std::string& prefix) {
    const std::string pattern = directory + '/' + prefix + std::string(placeholder);
    for (int i = 0; i < makeTries; ++i)
        if (make(pattern))
            return;
    throw std::system_error(errno, std::generic_category(), pattern);
}

ScratchFolder::~ScratchFolder() {
    (void)rmdir(path_.c_str()); // fails where there is something in it
    close(lock_);
}

// Another server that starts now may remove the new folder as a leftover before it is locked. Then the name
// leads nowhere, and the next name is tried.
bool ScratchFolder::make(const std::string& pattern) {
    std::string made = pattern;
    if (mkdtemp(made.data()) == nullptr)
        return false;
    lock_ = open(made.c_str(), folderFlags);
    if (lock_ >= 0 && flock(lock_, LOCK_EX | LOCK_NB) == 0 && leadsTo(AT_FDCWD, made.c_str(), lock_)) {
        path_ = made;
        return true;
    }
    const int reason = errno;
    (void)rmdir(made.c_str());
    if (lock_ >= 0)
        close(lock_);
    lock_ = -1;
    errno = reason;
    return false;
}

std::size_t removeLeftovers(const std::string& directory, const std::string& prefix,
                            const std::vector<std::string>& files) {
    const Directory place = openDirectory(AT_FDCWD, directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (!place)
        return 0;
    std::size_t removed = 0;
    for (const std::string& name : entriesOf(place.get()))
        if (isScratchName(name, prefix) && removeFolder(dirfd(place.get()), name, files))
            ++removed;
    return removed;
}

} // namespace store
