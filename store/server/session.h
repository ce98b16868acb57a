#pragma once

#include "store/server/clientlines.h"
#include "store/server/descriptor.h"
#include "store/server/output.h"
#include "store/server/peer.h"
#include "store/server/transactionqueue.h"
#include "velta/namelist.h"
#include "velta/net/eventdispatcher.h"
#include "velta/protocol/frame.h"
#include "velta/protocol/message.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>

namespace store {

// The connection of one client: requests in, answers out, and the notices that it is owed.
//
// It reads on only when its last request was taken, and gives out a request only when the answers before it
// are nearly all sent: it holds one frame and one read of input, one answer of output, and a set of names.
// Whatever goes wrong closes it; its owner then drops it.
class Session {
public:
    // Throws std::system_error when the dispatcher can't take the descriptor.
    Session(velta::net::EventDispatcher& dispatcher, ClientLines& lines, Descriptor descriptor, ClientId id,
            const Peer& peer);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    ClientId id() const { return id_; }
    const Peer& peer() const { return peer_; }
    // When it connected.
    Clock::time_point since() const { return since_; }
    // Who it is, for a log line.
    std::string text() const;
    bool hasGreeted() const { return greeted_; }
    void setGreeted(const std::string& name);

    // Whether a request is here and may be answered now.
    bool hasRequest() const { return request_.has_value() && takesAnswers() && !paused_; }
    velta::protocol::Request takeRequest();
    // Whether what was answered is nearly all sent.
    bool takesAnswers() const { return !closed_ && unsent() <= nearlySent; }
    // Between the two no request is given out; notices go out.
    void pause() { paused_ = true; }
    void resume() { paused_ = false; }

    void reply(const velta::protocol::Reply& reply) { output_.append(reply); }
    void subscribe(std::set<std::string> tables, bool leaveOutOwn);
    // Tables that a commit changed, of this client or of another. They go out in one notice once the output
    // is empty.
    void tablesChanged(const velta::NameList& tables, bool own);
    // Puts out what is owed now, in front of what comes next.
    void putNotice();
    // Sends what can be sent at once, and waits for what is needed next.
    void flush();

    // Bytes of output that wait.
    std::size_t unsent() const { return output_.size(); }
    // Since when nothing of its output could be sent, if so much waits that no request is taken. A notice
    // alone is never that much.
    std::optional<Clock::time_point> stalledSince() const { return stalledSince_; }

    bool isClosed() const { return closed_; }
    void close() { closed_ = true; }
    // Closes and logs that the client did `what` and is closed for it.
    void closeFor(const char* what, const std::string& detail = {});

private:
    static constexpr std::size_t nearlySent = 64 * 1024; // bytes of output up to which more is answered

    void onReady(unsigned ready);
    void readOnce();
    void nextRequest();
    bool isHungUp() const;
    void send();
    void watchProgress(bool moved);
    void setInterest();
    bool wantsInput() const { return takesAnswers() && !paused_ && !request_; }

    velta::net::EventDispatcher& dispatcher_;
    ClientLines& lines_;
    const Descriptor descriptor_;
    const ClientId id_;
    const Peer peer_;
    const Clock::time_point since_ = Clock::now();

    std::string name_;
    bool greeted_ = false;
    bool paused_ = false;
    bool closed_ = false;
    unsigned interest_;
    velta::protocol::FrameReader input_;
    std::optional<velta::protocol::Request> request_; // the next one, if it is here
    Output output_;
    std::optional<Clock::time_point> stalledSince_;
    std::set<std::string> subscribed_;
    std::set<std::string> owed_; // changed tables that the client was not told of yet
    bool leaveOutOwn_ = false;
};

} // namespace store
