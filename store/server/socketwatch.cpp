#include "store/server/socketwatch.h"

#include "store/log.h"

#include <cerrno>
#include <cstring>
#include <utility>

namespace store {

SocketWatch::SocketWatch(velta::net::EventDispatcher& dispatcher, const ListeningSocket& socket)
    : dispatcher_(dispatcher), socket_(socket) {
    if (!watch_.add(socket_.path())) {
        log::warning("nobody will be told if the socket " + socket_.path() +
                     " is removed: " + std::strerror(errno));
    } else {
        dispatcher_.add(watch_.descriptor(), velta::net::EventDispatcher::Readable,
                        [this](unsigned) { look(); });
    }
    look(); // it may have been replaced before the watch began
}

SocketWatch::~SocketWatch() {
    dispatcher_.remove(watch_.descriptor());
}

void SocketWatch::look() {
    (void)watch_.takeChanges(); // only the present state counts
    std::string wrong = socket_.whyUnreachable();
    if (wrong == told_)
        return;
    if (wrong.empty())
        log::info("the socket " + socket_.path() + " is back in its place");
    else
        log::error("no new client finds the socket " + socket_.path() + ": " + wrong);
    told_ = std::move(wrong);
}

} // namespace store
