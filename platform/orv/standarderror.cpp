#include "orv/standarderror.h"

#include <cerrno>

#include <poll.h>
#include <unistd.h>

namespace orv {

namespace {

// The descriptor is shared with the program that started this one, so it must not be made non-blocking.
bool canBeWritten(int descriptor) noexcept {
    pollfd wanted{descriptor, POLLOUT, 0};
    int ready = 0;
    while ((ready = poll(&wanted, 1, 0)) < 0 && errno == EINTR) {
    }
    return ready != 0; // an error as well: the write finds out
}

} // namespace

bool writeToStandardError(std::string_view text) noexcept {
    if (!canBeWritten(STDERR_FILENO))
        return false;
    ssize_t written = 0;
    while ((written = write(STDERR_FILENO, text.data(), text.size())) < 0 && errno == EINTR) {
    }
    return written == static_cast<ssize_t>(text.size());
}

} // namespace orv
