#pragma once

#include <string>

#include <sys/stat.h>

// Whose a file is. What another user laid down, or may write to, is no database to believe.
namespace store {

// Throws StorageError where the file belongs to neither root nor this process's user, where others may write
// to it, or where it is a symbolic link in a folder that others may write to. `name` is what the error calls
// it. A missing file is as good as one's own.
void checkOwner(const std::string& path, const std::string& name);
// The same for a file that is open.
void checkOwner(const struct stat& status, const std::string& name);

// Whether somebody else may lay files into the folder of that path.
bool isInForeignFolder(const std::string& path);

} // namespace store
