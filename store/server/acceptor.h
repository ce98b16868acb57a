#pragma once

#include "store/descriptor.h"
#include "store/server/clientlines.h"
#include "store/server/listeningsocket.h"
#include "store/server/peer.h"
#include "store/server/places.h"
#include "velta/net/eventdispatcher.h"
#include "velta/protocol/resultcode.h"

#include <functional>
#include <optional>

#include <sys/types.h>

namespace store {

// Accepts new connections, and turns those away that are not permitted or for which there is no place.
class Acceptor {
public:
    // Called with each connection that may stay. If it throws, the connection is closed.
    using Admit = std::function<void(Descriptor, const Peer&)>;

    // Members of `group` may connect, besides root and the server's own user.
    Acceptor(velta::net::EventDispatcher& dispatcher, ListeningSocket& socket, std::optional<gid_t> group,
             const Places& places, ClientLines& lines, Admit admit);
    ~Acceptor() { stop(); }
    Acceptor(const Acceptor&) = delete;
    Acceptor& operator=(const Acceptor&) = delete;

    // Accepts no further connections.
    void stop() { dispatcher_.remove(socket_.descriptor()); }
    // Accepts again when the pause is over that follows a lack of descriptors or memory.
    void resume(Clock::time_point now);
    Clock::time_point nextDeadline() const { return pausedUntil_.value_or(Clock::time_point::max()); }

private:
    void accept();
    void pause(const char* reason);
    void look(Descriptor connection);
    void turnAway(const Descriptor& connection, const velta::protocol::EResultCode& why);

    velta::net::EventDispatcher& dispatcher_;
    ListeningSocket& socket_;
    const std::optional<gid_t> group_;
    const Places& places_;
    ClientLines& lines_;
    const Admit admit_;
    std::optional<Clock::time_point> pausedUntil_;
};

} // namespace store
