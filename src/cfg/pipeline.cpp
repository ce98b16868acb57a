#include "cfg/pipeline.h"

#include "cfg/connecting.h"

#include <cerrno>
#include <new>

#include <poll.h>
#include <sys/socket.h>

namespace orv::cfg {

using velta::protocol::EResultCode;
using velta::protocol::Reply;
using velta::protocol::ReplyKind;
using velta::protocol::Request;

namespace {

constexpr std::size_t window = 512;      // requests without an answer, at most
constexpr std::size_t batch = 32 * 1024; // bytes of requests that go out together
constexpr std::size_t bytesOfDone = velta::protocol::frameHeader + 9; // kind, sequence and number
constexpr std::size_t keptByStore = 64 * 1024; // bytes of answers to a client, before the store stops reading
static_assert(window * bytesOfDone <= keptByStore, "the store reads on while requests are sent");

} // namespace

Pipeline::~Pipeline() {
    // A caller who wants the result has called finish(). Here the missing answers are taken, without which
    // the connection can't be used.
    try {
        (void)finish();
    } catch (const std::bad_alloc&) { // the connection is closed then
    }
}

EResultCode Pipeline::send(Request request) {
    if (!failure_.ok())
        return failure_;
    const EResultCode encoded = encode(request);
    if (!encoded.ok()) {
        (void)finish(); // failures of earlier requests come first
        if (failure_.ok())
            failure_ = encoded;
        return failure_;
    }
    if (missing_ == 0)
        nextSequence_ = request.sequence;
    if (++missing_ >= window)
        exchange(window / 2);
    else if (bytes_.size() >= batch)
        exchange(missing_);
    return failure_;
}

// Without memory a part of a request may be written. Nothing can follow it on this connection.
EResultCode Pipeline::encode(Request& request) {
    try {
        return connection_.encode(request, bytes_);
    } catch (const std::bad_alloc&) {
        connection_.close();
        throw;
    }
}

EResultCode Pipeline::finish() {
    exchange(0);
    connection_.tellLeftover();
    return failure_;
}

// Without memory an answer may be lost. It must not be waited for.
void Pipeline::exchange(std::size_t mayMiss) {
    try {
        exchangeOrThrow(mayMiss);
    } catch (const std::bad_alloc&) {
        connection_.close();
        throw;
    }
}

void Pipeline::exchangeOrThrow(std::size_t mayMiss) {
    auto deadline = connection_.answerDeadline();
    while (isWorking(mayMiss)) {
        const bool moved = sendSome();
        if (takeSome() || moved) {
            deadline = connection_.answerDeadline();
            continue;
        }
        if (!isWorking(mayMiss))
            break;
        const bool sending = sent_ < bytes_.size();
        EResultCode result = connection_.wait(static_cast<short>(POLLIN | (sending ? POLLOUT : 0)), deadline);
        if (result.ok())
            result = connection_.readAvailable();
        if (!result.ok() && failure_.ok())
            failure_ = result;
    }
    if (sent_ == bytes_.size()) {
        bytes_.clear();
        sent_ = 0;
    }
}

bool Pipeline::isWorking(std::size_t mayMiss) const {
    return connection_.isOpen() && (sent_ < bytes_.size() || missing_ > mayMiss);
}

// Whether anything was sent.
bool Pipeline::sendSome() {
    if (sent_ == bytes_.size())
        return false;
    const ssize_t count =
        ::send(connection_.descriptor(), bytes_.data() + sent_, bytes_.size() - sent_, MSG_NOSIGNAL);
    if (count > 0) {
        sent_ += static_cast<std::size_t>(count);
        return true;
    }
    if (errno == EPIPE || errno == ECONNRESET) {
        sent_ = bytes_.size(); // the store may have sent the reason before it closed; the answers will tell
    } else if (errno != EAGAIN && errno != EINTR) {
        const EResultCode why =
            connection_.lost(EResultCode(velta::protocol::code::notConnected, systemText("send")));
        if (failure_.ok())
            failure_ = why;
    }
    return false;
}

// Whether an answer was taken.
bool Pipeline::takeSome() {
    bool any = false;
    for (bool found = true; found && connection_.isOpen() && missing_ > 0;) {
        Reply reply;
        found = false;
        const EResultCode result = connection_.nextReply(reply, found);
        if (!result.ok() && failure_.ok())
            failure_ = result;
        if (found)
            take(reply);
        any = any || found;
    }
    return any;
}

void Pipeline::take(const Reply& reply) {
    const EResultCode result = connection_.check(reply, nextSequence_, ReplyKind::Done);
    ++nextSequence_;
    --missing_;
    if (!result.ok() && failure_.ok())
        failure_ = result;
    if (failure_.ok())
        ++done_;
}

} // namespace orv::cfg
