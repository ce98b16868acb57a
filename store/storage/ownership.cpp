#include "store/storage/ownership.h"

#include "store/storage/sqlite.h"
#include "store/users.h"

#include <array>
#include <cstdio>

#include <unistd.h>

namespace store {

namespace {

constexpr mode_t writableByOthers = S_IWGRP | S_IWOTH;

std::string folderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string octal(mode_t mode) {
    std::array<char, 8> text{};
    (void)std::snprintf(text.data(), text.size(), "%04o", static_cast<unsigned>(mode & 07777U));
    return text.data();
}

} // namespace

bool isInForeignFolder(const std::string& path) {
    struct stat folder {};
    if (stat(folderOf(path).c_str(), &folder) != 0)
        return false; // there can be no files in it
    return !isRootOrOwn(folder.st_uid) || (folder.st_mode & writableByOthers) != 0;
}

void checkOwner(const struct stat& status, const std::string& name) {
    if (!isRootOrOwn(status.st_uid))
        throw StorageError(name + " belongs to " + userText(status.st_uid) +
                           ", neither to root nor to this server's user");
    if (S_ISREG(status.st_mode) && (status.st_mode & writableByOthers) != 0)
        throw StorageError(name + " of " + userText(status.st_uid) +
                           " can be written by others, its mode is " + octal(status.st_mode));
}

void checkOwner(const std::string& path, const std::string& name) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0)
        return;
    if (S_ISLNK(status.st_mode)) {
        if (isInForeignFolder(path))
            throw StorageError(name + " is a symbolic link of " + userText(status.st_uid) +
                               " in a folder that others may write to");
        if (stat(path.c_str(), &status) != 0)
            return;
    }
    checkOwner(status, name);
}

} // namespace store
