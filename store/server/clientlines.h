#pragma once

#include "store/repeats.h"
#include "store/server/peer.h"
#include "store/server/transactionqueue.h"

#include <optional>
#include <string>

namespace store {

// Log lines that clients cause. However often a client does so, only few lines are written.
class ClientLines {
public:
    // `what` names the kind of event, whichever client caused it.
    void warn(const char* what, const Peer& peer, const std::string& text) {
        repeats_.warn(what + (' ' + std::to_string(peer.user)), text, Clock::now());
    }
    void error(const std::string& what, const std::string& text) { repeats_.error(what, text, Clock::now()); }

    // Logs how many lines were left out. Due once a minute.
    void flush(Clock::time_point now) { repeats_.flush(now); }
    void flushAll() { repeats_.flushAll(); }
    Clock::time_point nextDeadline() const { return repeats_.deadline().value_or(Clock::time_point::max()); }

private:
    log::Repeats repeats_;
};

} // namespace store
