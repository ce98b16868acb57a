#include "store/cluster/rpcconnection.h"

#include "store/storage/cells.h"

#include <array>
#include <cerrno>
#include <new>
#include <system_error>
#include <utility>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace store {

namespace {

using velta::net::EventDispatcher;

constexpr std::size_t readSize = std::size_t{32} * 1024;

bool wouldBlock(int error) {
    return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

std::string textOf(int error) {
    return std::generic_category().message(error);
}

std::string secondsOf(RpcConnection::Clock::duration duration) {
    return std::to_string(std::chrono::duration_cast<std::chrono::seconds>(duration).count()) + " s";
}

} // namespace

RpcConnection::RpcConnection(EventDispatcher& dispatcher, Events events, Limits limits)
    : dispatcher_(dispatcher), events_(std::move(events)), limits_(limits), input_(limits.message) {}

RpcConnection::RpcConnection(EventDispatcher& dispatcher, Events events)
    : RpcConnection(dispatcher, std::move(events), Limits()) {}

RpcConnection::~RpcConnection() {
    disconnect();
}

void RpcConnection::open(const Remote& remote) {
    disconnect();
    state_ = State::Connecting;
    guarded([&] { connect(remote); });
}

void RpcConnection::close() {
    disconnect();
}

void RpcConnection::connect(const Remote& remote) {
    const int family = remote.address.ss_family;
    descriptor_.emplace(socket(family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (descriptor_->get() < 0)
        return fail("it can't be reached: " + textOf(errno));
    const int on = 1;
    if (family != AF_UNIX) // or it only costs time
        (void)setsockopt(descriptor_->get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    const auto* const address = reinterpret_cast<const sockaddr*>(&remote.address);
    if (::connect(descriptor_->get(), address, remote.length) != 0 && errno != EINPROGRESS && errno != EINTR)
        return fail("it can't be reached: " + textOf(errno));
    interest_ = EventDispatcher::Writable; // which it is as soon as it is connected or refused
    dispatcher_.add(descriptor_->get(), interest_, [this](unsigned ready) { onReady(ready); });
}

void RpcConnection::onReady(unsigned ready) {
    guarded([&] {
        if (state_ == State::Connecting)
            return finishConnecting();
        if ((ready & EventDispatcher::Readable) != 0)
            receive();
        if ((ready & EventDispatcher::Writable) != 0 && isOpen()) // it was; an event may have ended it
            flush();
    });
    tellFailure();
}

void RpcConnection::finishConnecting() {
    int error = 0;
    socklen_t size = sizeof(error);
    if (getsockopt(descriptor_->get(), SOL_SOCKET, SO_ERROR, &error, &size) != 0)
        error = errno;
    if (error != 0)
        return fail("it can't be reached: " + textOf(error));
    state_ = State::Open;
    heard_ = true;
    setInterest();
    events_.opened();
}

void RpcConnection::receive() {
    std::array<char, readSize> bytes; // filled by recv
    const ssize_t size = recv(descriptor_->get(), bytes.data(), bytes.size(), 0);
    if (size > 0) {
        heard_ = true;
        input_.append({bytes.data(), static_cast<std::size_t>(size)});
        takeMessages();
    } else if (size == 0) {
        fail("it closed the connection");
    } else if (!wouldBlock(errno)) {
        fail("it broke the connection: " + textOf(errno));
    }
}

void RpcConnection::takeMessages() {
    while (true) { // an event that ends the connection leaves no input
        std::string_view text;
        std::string complaint;
        std::optional<RpcMessage> message;
        switch (input_.next(text)) {
        case JsonStream::Next::More:
            return;
        case JsonStream::Next::Broken:
            complaint = input_.complaint();
            break;
        case JsonStream::Next::Message:
            message = rpcMessageOf(text, complaint);
            break;
        }
        if (!message)
            return fail("it sent a malformed message: " + complaint);
        take(*message);
    }
}

void RpcConnection::take(const RpcMessage& message) {
    switch (message.kind) {
    case RpcMessage::Kind::Notification:
        return events_.notified(message.method, message.params);
    case RpcMessage::Kind::Answer:
        return takeAnswer(message);
    case RpcMessage::Kind::Request:
        if (message.method == "echo")
            send(answerText(message.params, nullptr, message.id));
        else
            send(answerText(nullptr, "unknown method", message.id));
        return;
    }
}

void RpcConnection::takeAnswer(const RpcMessage& message) {
    const auto found = calls_.find(message.answered);
    if (found == calls_.end())
        return fail("it answered the call " + std::to_string(message.answered) +
                    ", which waits for no answer");
    const Answer answer = std::move(found->second);
    calls_.erase(found);
    answer(message.result, message.error);
}

void RpcConnection::call(const std::string& method, const Json& params, Answer answer) {
    if (!isOpen())
        return;
    guarded([&] {
        const std::uint64_t id = nextCall_++;
        const std::string text = requestText(method, params, id);
        calls_.emplace(id, std::move(answer));
        send(text);
    });
}

void RpcConnection::send(const std::string& text) {
    const bool waiting = !output_.empty();
    if (output_.size() + text.size() > limits_.unsent)
        return fail("it doesn't take what is sent to it: more than " + std::to_string(limits_.unsent) +
                    " bytes wait");
    output_.append(text);
    if (!waiting)
        flush();
}

void RpcConnection::flush() {
    while (!output_.empty()) {
        const std::string_view bytes = output_.view();
        const ssize_t size =
            ::send(descriptor_->get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (size < 0 && wouldBlock(errno))
            break;
        if (size < 0)
            return fail("it broke the connection: " + textOf(errno));
        output_.drop(static_cast<std::size_t>(size));
    }
    setInterest();
}

void RpcConnection::setInterest() {
    const unsigned wanted =
        unsigned{EventDispatcher::Readable} | (output_.empty() ? 0U : unsigned{EventDispatcher::Writable});
    if (wanted == interest_)
        return;
    dispatcher_.setInterest(descriptor_->get(), wanted);
    interest_ = wanted;
}

void RpcConnection::settle(Clock::time_point now) {
    if (!since_ || std::exchange(heard_, false)) {
        since_ = now;
        probed_.reset();
    }
    switch (state_) {
    case State::Closed:
    case State::Failed:
        break;
    case State::Connecting:
        if (now - *since_ >= limits_.connecting)
            fail("it can't be reached: no answer in " + secondsOf(limits_.connecting));
        break;
    case State::Open:
        guarded([&] { watchSilence(now); });
        break;
    }
    tellFailure();
}

// What was sent while this program could not run is read before anything is given up: the silence counts from
// a question on.
void RpcConnection::watchSilence(Clock::time_point now) {
    if (!probed_ && now - *since_ >= limits_.quiet) {
        probed_ = now;
        call("echo", Json::array(), [](const Json&, const Json&) {});
    } else if (probed_ && now - *probed_ >= limits_.silent - limits_.quiet) {
        fail("it has sent nothing for " + secondsOf(now - *since_));
    }
}

RpcConnection::Clock::time_point RpcConnection::nextDeadline() const {
    const bool isNew = !since_ || heard_; // the times begin with the next settle()
    switch (state_) {
    case State::Closed:
        return Clock::time_point::max();
    case State::Failed:
        return {};
    case State::Connecting:
        return isNew ? Clock::time_point() : *since_ + limits_.connecting;
    case State::Open:
        if (isNew)
            return {};
        return probed_ ? *probed_ + (limits_.silent - limits_.quiet) : *since_ + limits_.quiet;
    }
    return Clock::time_point::max();
}

void RpcConnection::disconnect() {
    if (descriptor_)
        dispatcher_.remove(descriptor_->get());
    descriptor_.reset();
    state_ = State::Closed;
    interest_ = 0;
    input_ = JsonStream(limits_.message);
    output_ = ByteQueue();
    heard_ = false;
    since_.reset();
    probed_.reset();
    const auto dropped = std::exchange(calls_, {}); // they end when nothing here is half done
}

void RpcConnection::fail(std::string reason) {
    if (state_ == State::Closed || state_ == State::Failed)
        return;
    disconnect();
    state_ = State::Failed;
    failure_ = std::move(reason);
    dispatcher_.wake();
}

void RpcConnection::tellFailure() {
    if (state_ != State::Failed)
        return;
    state_ = State::Closed;
    events_.closed(std::exchange(failure_, {}));
}

template <typename Work>
void RpcConnection::guarded(Work work) {
    try {
        try {
            work();
        } catch (const Json::exception& error) {
            fail("it sent what is not expected of it: " + shown(error.what()));
        } catch (const std::system_error& error) { // the dispatcher can't watch it
            fail(shown(error.what()));
        }
    } catch (const std::bad_alloc&) {
        fail("memory ran out"); // short enough to need none
    }
}

} // namespace store
