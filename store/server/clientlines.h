#pragma once

#include "store/repeats.h"
#include "store/server/peer.h"
#include "store/server/transactionqueue.h"

#include <optional>
#include <string>

namespace store {

// The lines of the log that clients cause: however often they do, few are written.
class ClientLines {
public:
    // `what` tells one thing that a client can do from another, whoever it is.
    void warn(const char* what, const Peer& peer, const std::string& text) {
        repeats_.warn(what + (' ' + std::to_string(peer.user)), text, Clock::now());
    }
    void error(const std::string& what, const std::string& text) { repeats_.error(what, text, Clock::now()); }

    // Tells of those that were not written, once a minute.
    void flush(Clock::time_point now) { repeats_.flush(now); }
    void flushAll() { repeats_.flushAll(); }
    Clock::time_point nextDeadline() const { return repeats_.deadline().value_or(Clock::time_point::max()); }

private:
    log::Repeats repeats_;
};

} // namespace store
