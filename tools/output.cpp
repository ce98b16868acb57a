#include "tools/output.h"

#include "tools/errors.h"

#include <cerrno>
#include <cstring>
#include <iostream>

namespace tools {

void print(const std::string& text) {
    errno = 0;
    if (std::cout << text << std::flush)
        return;
    if (errno == EPIPE)
        throw ReaderGone();
    throw Refused(std::string("standard output: ") + std::strerror(errno != 0 ? errno : EIO));
}

} // namespace tools
