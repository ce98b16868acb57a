#pragma once

#include "store/filewatch.h"
#include "store/server/listeningsocket.h"
#include "velta/net/eventdispatcher.h"

#include <string>

namespace store {

// Logs when clients no longer find the socket at its path, and when they find it again. Nothing else is done
// about it: whoever put something there may have had a reason.
class SocketWatch {
public:
    // Where the kernel can't watch the socket, that is logged.
    SocketWatch(velta::net::EventDispatcher& dispatcher, const ListeningSocket& socket);
    ~SocketWatch();
    SocketWatch(const SocketWatch&) = delete;
    SocketWatch& operator=(const SocketWatch&) = delete;

private:
    void look();

    velta::net::EventDispatcher& dispatcher_;
    const ListeningSocket& socket_;
    FileWatch watch_;
    std::string told_; // what was wrong when it was looked at last
};

} // namespace store
