#include "orv/standarderror.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <poll.h>
#include <sys/stat.h>
#include <sys/uio.h>
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

iovec piece(std::string_view text) noexcept {
    return {const_cast<char*>(text.data()), text.size()}; // it is only read
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

bool isJournalOnStandardError() noexcept {
    const char* const journal = std::getenv("JOURNAL_STREAM");
    struct stat status {};
    if (journal == nullptr || fstat(STDERR_FILENO, &status) != 0)
        return false;
    char stream[48]; // two numbers of up to 20 digits
    (void)std::snprintf(stream, sizeof stream, "%ju:%ju", static_cast<std::uintmax_t>(status.st_dev),
                        static_cast<std::uintmax_t>(status.st_ino));
    return std::strcmp(journal, stream) == 0;
}

void writeErrorLine(std::string_view text) noexcept {
    const std::string_view severity = isJournalOnStandardError() ? "<3>" : "";
    const iovec line[] = {piece(severity), piece(text), piece("\n")};
    if (canBeWritten(STDERR_FILENO))
        while (writev(STDERR_FILENO, line, 3) < 0 && errno == EINTR) {
        }
}

} // namespace orv
