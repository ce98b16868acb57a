#include "support/capturedlog.h"

#include <cerrno>
#include <sstream>
#include <system_error>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace fakes {

namespace {

int orThrow(int result, const char* what) {
    if (result < 0)
        throw std::system_error(errno, std::generic_category(), what);
    return result;
}

} // namespace

CapturedOutput::CapturedOutput(int descriptor)
    : descriptor_(descriptor),
      original_(orThrow(fcntl(descriptor, F_DUPFD_CLOEXEC, 3), "fcntl")),
      memory_(orThrow(memfd_create("captured", MFD_CLOEXEC), "memfd_create")) {
    orThrow(dup2(memory_, descriptor_), "dup2");
}

CapturedOutput::~CapturedOutput() {
    dup2(original_, descriptor_);
    close(original_);
    close(memory_);
}

std::string CapturedOutput::text() const {
    std::string text;
    char piece[4096];
    for (ssize_t got; (got = pread(memory_, piece, sizeof piece, static_cast<off_t>(text.size()))) > 0;)
        text.append(piece, static_cast<std::size_t>(got));
    return text;
}

CapturedLog::CapturedLog() : output_(STDERR_FILENO) {}

std::vector<std::string> CapturedLog::lines() const {
    std::vector<std::string> lines;
    std::istringstream text(output_.text().substr(begin_));
    for (std::string line; std::getline(text, line);)
        lines.push_back(line.substr(line.find(' ') + 1));
    return lines;
}

} // namespace fakes
