#include "orv/stop.h"

#include <cerrno>
#include <cstdint>
#include <system_error>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace orv {

Stop::Stop() : descriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (descriptor_ < 0)
        throw std::system_error(errno, std::generic_category(), "eventfd");
}

Stop::~Stop() {
    (void)close(descriptor_);
}

void Stop::request() const {
    const int savedErrno = errno;
    const std::uint64_t one = 1;
    (void)!write(descriptor_, &one, sizeof one); // fails only where it is full of requests
    errno = savedErrno;
}

// The signal that interrupts the wait is most likely the request to stop, so it is looked for once more.
bool Stop::requestedWithin(int milliseconds) const {
    pollfd descriptor{descriptor_, POLLIN, 0};
    if (poll(&descriptor, 1, milliseconds) >= 0)
        return descriptor.revents != 0;
    descriptor.revents = 0;
    return poll(&descriptor, 1, 0) > 0;
}

void StoppableSystem::sleep(unsigned microseconds) {
    (void)stop_.requestedWithin(static_cast<int>(microseconds / 1000 + (microseconds % 1000 != 0 ? 1 : 0)));
}

} // namespace orv
