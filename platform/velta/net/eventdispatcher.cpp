#include "velta/net/eventdispatcher.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <system_error>
#include <utility>

#include <sys/epoll.h>
#include <unistd.h>

namespace velta::net {

namespace {

constexpr int eventsARound = 32;

[[noreturn]] void fail(const char* call) {
    throw std::system_error(errno, std::generic_category(), call);
}

epoll_event eventFor(unsigned interest, std::uint64_t id) {
    epoll_event event{};
    if ((interest & EventDispatcher::Readable) != 0)
        event.events |= EPOLLIN;
    if ((interest & EventDispatcher::Writable) != 0)
        event.events |= EPOLLOUT;
    event.data.u64 = id;
    return event;
}

unsigned readyFrom(std::uint32_t events) {
    unsigned ready = 0;
    if ((events & (EPOLLIN | EPOLLHUP | EPOLLERR)) != 0)
        ready |= EventDispatcher::Readable;
    if ((events & EPOLLOUT) != 0)
        ready |= EventDispatcher::Writable;
    return ready;
}

} // namespace

EventDispatcher::EventDispatcher() : epoll_(epoll_create1(EPOLL_CLOEXEC)) {
    if (epoll_ < 0)
        fail("epoll_create1");
}

EventDispatcher::~EventDispatcher() {
    close(epoll_);
}

void EventDispatcher::add(int descriptor, unsigned interest, Callback callback) {
    remove(descriptor);
    const WatchId id = nextId_++;
    epoll_event event = eventFor(interest, id);
    if (epoll_ctl(epoll_, EPOLL_CTL_ADD, descriptor, &event) != 0)
        fail("epoll_ctl");
    watches_.emplace(id, Watch{descriptor, std::move(callback)});
    idOf_.emplace(descriptor, id);
}

void EventDispatcher::setInterest(int descriptor, unsigned interest) {
    const auto found = idOf_.find(descriptor);
    if (found == idOf_.end())
        return;
    epoll_event event = eventFor(interest, found->second);
    if (epoll_ctl(epoll_, EPOLL_CTL_MOD, descriptor, &event) != 0)
        fail("epoll_ctl");
}

void EventDispatcher::remove(int descriptor) {
    const auto found = idOf_.find(descriptor);
    if (found == idOf_.end())
        return;
    epoll_event unused{};
    (void)epoll_ctl(epoll_, EPOLL_CTL_DEL, descriptor, &unused); // fails only where it is gone already
    watches_.erase(found->second);
    idOf_.erase(found);
}

void EventDispatcher::handleEvents(unsigned milliseconds) {
    std::array<epoll_event, eventsARound> events{};
    const bool woken = std::exchange(woken_, false);
    const int timeout = woken ? 0 : static_cast<int>(std::min<unsigned>(milliseconds, INT_MAX));
    const int count = epoll_wait(epoll_, events.data(), eventsARound, timeout);
    if (count < 0 && errno != EINTR)
        fail("epoll_wait");
    for (int i = 0; i < count; ++i) {
        const epoll_event& event = events[static_cast<std::size_t>(i)];
        dispatch(event.data.u64, readyFrom(event.events));
    }
}

void EventDispatcher::dispatch(WatchId id, unsigned ready) {
    const auto found = watches_.find(id);
    if (found == watches_.end())
        return;
    const Callback callback = found->second.callback; // a copy: the watch may be removed by what it calls
    callback(ready);
}

} // namespace velta::net
