#pragma once

#include <string>

#include <sys/stat.h>

// Checks who owns a file. A database that another user has put there or can write to is not to be trusted.
namespace store {

// Throws StorageError if the file belongs neither to root nor to this process's user, if others may write to
// it, or if it is a symbolic link in a folder that others may write to. A missing file is fine. `name` names
// it in errors.
void checkOwner(const std::string& path, const std::string& name);
// The same for an open file.
void checkOwner(const struct stat& status, const std::string& name);

// Whether another user can put files into the folder of that path.
bool isInForeignFolder(const std::string& path);

} // namespace store
