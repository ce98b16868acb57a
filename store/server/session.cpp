#include "store/server/session.h"

#include "store/storage/cells.h"
#include "store/log.h"

#include <array>
#include <cerrno>
#include <utility>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace store {

namespace {

using velta::net::EventDispatcher;
using velta::protocol::FrameReader;

constexpr std::size_t readSize = 16 * 1024;
// Bytes of output up to which the next request is taken.
constexpr std::size_t nearlySent = 64 * 1024;

bool wouldBlock() {
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

} // namespace

Session::Session(EventDispatcher& dispatcher, int descriptor, ClientId id, const Peer& peer, Handler handler)
    : dispatcher_(dispatcher),
      descriptor_(descriptor),
      id_(id),
      peer_(peer),
      handler_(std::move(handler)),
      interest_(EventDispatcher::Readable) {
    try {
        dispatcher_.add(descriptor_, interest_, [this](unsigned ready) { onReady(ready); });
    } catch (...) {
        ::close(descriptor_);
        throw;
    }
}

Session::~Session() {
    dispatcher_.remove(descriptor_);
    ::close(descriptor_);
}

std::string Session::text() const {
    return "client \"" + (greeted_ ? name_ : "?") + "\" (" + peer_.text() + ")";
}

void Session::setGreeted(const std::string& name) {
    greeted_ = true;
    name_ = shown(name);
}

void Session::resume() {
    paused_ = false;
    work();
}

void Session::done(std::uint32_t sequence, std::uint32_t number) {
    velta::protocol::Reply answer;
    answer.kind = velta::protocol::ReplyKind::Done;
    answer.sequence = sequence;
    answer.number = number;
    reply(answer);
}

void Session::failed(std::uint32_t sequence, const velta::protocol::EResultCode& result) {
    velta::protocol::Reply answer;
    answer.kind = velta::protocol::ReplyKind::Failed;
    answer.sequence = sequence;
    answer.result = result;
    reply(answer);
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
    owed_.clear();
    reply(notice);
}

void Session::onReady(unsigned ready) {
    if (closed_)
        return;
    if ((ready & EventDispatcher::Readable) != 0) {
        if (wantsInput())
            readOnce();
        else if (isHungUp())
            close();
    }
    work();
}

void Session::readOnce() {
    std::array<char, readSize> bytes; // filled by recv
    const ssize_t size = recv(descriptor_, bytes.data(), bytes.size(), 0);
    if (size > 0)
        input_.append(bytes.data(), static_cast<std::size_t>(size));
    else if (size == 0 || !wouldBlock())
        close();
}

// A hang-up is reported whether or not one asked for input.
bool Session::isHungUp() const {
    pollfd watched{descriptor_, 0, 0};
    return poll(&watched, 1, 0) > 0 && (watched.revents & (POLLHUP | POLLERR)) != 0;
}

void Session::work() {
    bool handled = true;
    while (handled && !closed_) {
        send(); // what goes makes room for the next request, and nobody tells of one that is in already
        handled = false;
        while (wantsInput() && handleNext())
            handled = true;
    }
    send();
    setInterest();
}

bool Session::handleNext() {
    std::string_view message;
    velta::protocol::Request request;
    switch (input_.next(message)) {
    case FrameReader::Next::More:
        return false;
    case FrameReader::Next::Broken:
        log::warning(text() + " sent a frame with an impossible length, connection closed");
        close();
        return false;
    case FrameReader::Next::Message:
        break;
    }
    if (!velta::protocol::decode(message, request)) {
        log::warning(text() + " sent a message of " + std::to_string(message.size()) + " bytes, kind " +
                     std::to_string(static_cast<unsigned char>(message[0])) +
                     ", that can't be understood, connection closed");
        close();
        return false;
    }
    handler_(*this, request);
    return true;
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
        const ssize_t size = ::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
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

bool Session::wantsInput() const {
    return !closed_ && !paused_ && unsent() <= nearlySent;
}

void Session::setInterest() {
    const unsigned wanted = (wantsInput() ? unsigned{EventDispatcher::Readable} : 0U) |
                            (unsent() > 0 ? unsigned{EventDispatcher::Writable} : 0U);
    if (closed_) {
        dispatcher_.remove(descriptor_);
    } else if (wanted != interest_) {
        dispatcher_.setInterest(descriptor_, wanted);
        interest_ = wanted;
    }
}

} // namespace store
