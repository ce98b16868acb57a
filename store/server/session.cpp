#include "store/server/session.h"

#include "store/storage/cells.h"

#include <array>
#include <cerrno>
#include <exception>
#include <new>
#include <utility>

#include <poll.h>
#include <sys/socket.h>

namespace store {

namespace {

using velta::net::EventDispatcher;
using velta::protocol::FrameReader;

constexpr std::size_t readSize = 16 * 1024;

bool wouldBlock() {
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

} // namespace

Session::Session(EventDispatcher& dispatcher, ClientLines& lines, Descriptor descriptor, ClientId id,
                 const Peer& peer)
    : dispatcher_(dispatcher),
      lines_(lines),
      descriptor_(std::move(descriptor)),
      id_(id),
      peer_(peer),
      interest_(EventDispatcher::Readable) {
    dispatcher_.add(descriptor_.get(), interest_, [this](unsigned ready) { onReady(ready); });
}

Session::~Session() {
    dispatcher_.remove(descriptor_.get());
}

std::string Session::text() const {
    return "client \"" + (greeted_ ? name_ : "?") + "\" (" + peer_.text() + ")";
}

void Session::setGreeted(const std::string& name) {
    greeted_ = true;
    name_ = shown(name);
}

velta::protocol::Request Session::takeRequest() {
    velta::protocol::Request request = std::move(*request_);
    request_.reset();
    try {
        nextRequest(); // it may already be in the buffer, where no event announces it
    } catch (const std::bad_alloc&) {
        close();
    }
    return request;
}

void Session::subscribe(std::set<std::string> tables, bool leaveOutOwn) {
    subscribed_ = std::move(tables);
    leaveOutOwn_ = leaveOutOwn;
    for (auto table = owed_.begin(); table != owed_.end();)
        table = subscribed_.count(*table) != 0 ? std::next(table) : owed_.erase(table);
}

void Session::tablesChanged(const velta::NameList& tables, bool own) {
    if (own && leaveOutOwn_)
        return;
    for (const std::string& table : tables)
        if (subscribed_.count(table) != 0)
            owed_.insert(table);
    if (!owed_.empty() && output_.empty())
        flush();
}

void Session::putNotice() {
    if (owed_.empty())
        return;
    velta::protocol::Reply notice;
    notice.kind = velta::protocol::ReplyKind::Notice;
    notice.names.assign(owed_.begin(), owed_.end());
    reply(notice);
    owed_.clear();
}

// If memory runs out, this client loses its connection and no other is affected.
void Session::onReady(unsigned ready) {
    if (closed_)
        return;
    try {
        if ((ready & EventDispatcher::Readable) != 0) {
            if (wantsInput())
                readOnce();
            else if (!hasRequest() && isHungUp())
                close();
        }
        if (hasRequest())
            send(); // its turn follows in this round and flushes
        else
            flush();
    } catch (const std::exception&) {
        close();
    }
}

void Session::readOnce() {
    std::array<char, readSize> bytes; // filled by recv
    const ssize_t size = recv(descriptor_.get(), bytes.data(), bytes.size(), 0);
    if (size > 0) {
        input_.append(bytes.data(), static_cast<std::size_t>(size));
        nextRequest();
    } else if (size == 0 || !wouldBlock()) {
        close();
    }
}

void Session::nextRequest() {
    std::string_view message;
    switch (input_.next(message)) {
    case FrameReader::Next::More:
        return;
    case FrameReader::Next::Broken:
        closeFor("sent a frame with an impossible length");
        return;
    case FrameReader::Next::Message:
        break;
    }
    if (velta::protocol::decode(message, request_.emplace()))
        return;
    closeFor("sent a message that can't be understood",
             " (" + std::to_string(message.size()) + " bytes, kind " +
                 std::to_string(static_cast<unsigned char>(message[0])) + ')');
}

void Session::closeFor(const char* what, const std::string& detail) {
    close();
    lines_.warn(what, peer_, text() + ' ' + what + detail + ", connection closed");
}

// poll() reports a hang-up even if no event was asked for.
bool Session::isHungUp() const {
    pollfd watched{descriptor_.get(), 0, 0};
    return poll(&watched, 1, 0) > 0 && (watched.revents & (POLLHUP | POLLERR)) != 0;
}

void Session::flush() {
    send();
    setInterest();
}

void Session::send() {
    if (output_.empty())
        putNotice();
    bool moved = false;
    while (!output_.empty()) {
        const std::string_view bytes = output_.front();
        const ssize_t size =
            ::send(descriptor_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (size < 0) {
            if (!wouldBlock())
                close();
            break;
        }
        output_.drop(static_cast<std::size_t>(size));
        moved = true;
        if (output_.empty())
            putNotice();
    }
    watchProgress(moved);
}

void Session::watchProgress(bool moved) {
    if (unsent() <= nearlySent)
        stalledSince_.reset();
    else if (moved || !stalledSince_)
        stalledSince_ = Clock::now();
}

void Session::setInterest() {
    const unsigned wanted = (wantsInput() ? unsigned{EventDispatcher::Readable} : 0U) |
                            (unsent() > 0 ? unsigned{EventDispatcher::Writable} : 0U);
    if (closed_) {
        dispatcher_.remove(descriptor_.get());
    } else if (wanted != interest_) {
        dispatcher_.setInterest(descriptor_.get(), wanted);
        interest_ = wanted;
    }
}

} // namespace store
