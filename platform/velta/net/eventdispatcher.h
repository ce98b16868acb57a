#pragma once

#include <cstdint>
#include <functional>
#include <map>

namespace velta::net {

// Waits for descriptors and calls the callbacks that were registered for them. For one thread.
class EventDispatcher {
public:
    enum Interest : unsigned { Readable = 1, Writable = 2 };

    // Called with the interests that are ready. A hang-up or an error counts as readable; the read that
    // follows then reports it. A callback may add and remove descriptors, its own included; a descriptor
    // removed in a round is not called any more in that round.
    using Callback = std::function<void(unsigned ready)>;

    // Throws std::system_error when the kernel has no descriptor left.
    EventDispatcher();
    ~EventDispatcher();
    EventDispatcher(const EventDispatcher&) = delete;
    EventDispatcher& operator=(const EventDispatcher&) = delete;

    // The descriptor stays the caller's, who calls remove() before closing it. Throws std::system_error when
    // the kernel refuses it.
    void add(int descriptor, unsigned interest, Callback callback);
    // With no interest, only a hang-up or an error is reported.
    void setInterest(int descriptor, unsigned interest);
    // Harmless for a descriptor that was never added.
    void remove(int descriptor);

    // Waits until a descriptor is ready, a signal arrives, or the time is up, then calls back once for each
    // ready descriptor.
    void handleEvents(unsigned milliseconds);
    // The next handleEvents() does not wait: there is something to do that no descriptor reports.
    void wake() { woken_ = true; }

private:
    struct Watch {
        int descriptor;
        Callback callback;
    };

    // Watches are kept by a number of their own: a descriptor's number may be given out again within a round.
    using WatchId = std::uint64_t;

    void dispatch(WatchId id, unsigned ready);

    int epoll_;
    bool woken_ = false;
    WatchId nextId_ = 1;
    std::map<WatchId, Watch> watches_;
    std::map<int, WatchId> idOf_;
};

} // namespace velta::net
