#pragma once

#include "store/filewatch.h"
#include "store/server/listeningsocket.h"
#include "velta/net/eventdispatcher.h"

#include <string>

namespace store {

// Logs when clients can no longer reach the socket at its path, and when they can again. It does nothing else
// about it: whoever replaced the socket may have had a reason.
class SocketWatch {
public:
    // A socket that can't be watched is logged.
    SocketWatch(velta::net::EventDispatcher& dispatcher, const ListeningSocket& socket);
    ~SocketWatch();
    SocketWatch(const SocketWatch&) = delete;
    SocketWatch& operator=(const SocketWatch&) = delete;

private:
    void look();

    velta::net::EventDispatcher& dispatcher_;
    const ListeningSocket& socket_;
    FileWatch watch_;
    std::string told_; // what was wrong at the last look
};

} // namespace store
