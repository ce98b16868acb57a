#include "cfg/stopping.h"

#include <algorithm>

#include <poll.h>

namespace orv::cfg {

namespace {

// For an open transaction: enough for a slow disk, and short enough for somebody who shuts the router down.
constexpr std::chrono::seconds timeToFinish(2);

} // namespace

void Stopping::note() {
    if (!noted())
        deadline_ = Clock::now() + timeToFinish;
}

bool Stopping::requested() {
    pollfd polled{descriptor(), POLLIN, 0};
    if (polled.fd >= 0 && poll(&polled, 1, 0) > 0)
        note();
    return noted();
}

Stopping::Clock::time_point Stopping::limit(Clock::time_point deadline) const {
    return deadline_ ? std::min(deadline, *deadline_) : deadline;
}

} // namespace orv::cfg
