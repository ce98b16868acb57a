#include "tools/loadsource.h"

#include "tools/errors.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tools {

namespace {

[[noreturn]] void refuse(const std::string& what = {}) {
    throw Refused(what + std::strerror(errno));
}

bool isRegular(int file) {
    struct stat status {};
    return fstat(file, &status) == 0 && S_ISREG(status.st_mode);
}

int fileWithoutName() {
    std::error_code error;
    const std::filesystem::path folder = std::filesystem::temp_directory_path(error);
    std::string name = (error ? std::string("/tmp") : folder.string()) + "/cfgctl.XXXXXX";
    const int file = mkostemp(name.data(), O_CLOEXEC);
    if (file < 0)
        refuse(name + ": ");
    unlink(name.c_str());
    return file;
}

} // namespace

LoadSource::LoadSource(const std::string& path, std::uint64_t limit) : limit_(limit) {
    file_ = path == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0) : open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file_ < 0)
        refuse();
    const off_t begin = isRegular(file_) ? lseek(file_, 0, SEEK_CUR) : -1;
    kept_ = begin < 0;
    if (!kept_)
        begin_ = static_cast<std::uint64_t>(begin);
}

LoadSource::~LoadSource() {
    if (file_ >= 0)
        close(file_);
    if (spool_ >= 0)
        close(spool_);
}

std::size_t LoadSource::read(char* bytes, std::size_t size) {
    ssize_t count = -1;
    do
        count = ::read(file_, bytes, size);
    while (count < 0 && errno == EINTR);
    if (count < 0)
        refuse();
    if (kept_)
        spool(bytes, static_cast<std::size_t>(count));
    return static_cast<std::size_t>(count);
}

void LoadSource::spool(const char* bytes, std::size_t size) {
    spooled_ += size;
    if (spooled_ > limit_)
        throw Refused("larger than " + std::to_string(limit_) + " bytes");
    if (spool_ < 0)
        spool_ = fileWithoutName();
    for (std::size_t written = 0; written < size;) {
        const ssize_t count = ::write(spool_, bytes + written, size - written);
        if (count < 0 && errno != EINTR)
            refuse("can't be kept for the second reading: ");
        written += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
}

void LoadSource::rewind() {
    if (kept_) {
        close(file_);
        file_ = std::exchange(spool_, -1);
        kept_ = false;
    }
    if (lseek(file_, static_cast<off_t>(begin_), SEEK_SET) < 0)
        refuse();
}

} // namespace tools
