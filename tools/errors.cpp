#include "tools/errors.h"

#include <cerrno>
#include <cstring>

namespace tools {

void refuseByErrno(const std::string& what) {
    throw Refused(what + ": " + std::strerror(errno));
}

} // namespace tools
