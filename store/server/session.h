#pragma once

#include "store/descriptor.h"
#include "store/server/clientlines.h"
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

// The connection of one client: its requests, the answers, and the notices.
//
// Its memory is bounded. It reads further input only after its last request was taken, and it offers a
// request only when nearly all earlier answers are sent. So it holds at most one frame and one read of input,
// one answer, and a set of table names. Any error closes it; its owner then drops it.
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
    // Names the client in log lines.
    std::string text() const;
    bool hasGreeted() const { return greeted_; }
    void setGreeted(const std::string& name);

    // Whether a request is here and may be answered now.
    bool hasRequest() const { return request_.has_value() && takesAnswers() && !paused_; }
    velta::protocol::Request takeRequest();
    // Whether nearly all earlier answers are sent.
    bool takesAnswers() const { return !closed_ && unsent() <= nearlySent; }
    // Between the two no request is offered, but notices are sent.
    void pause() { paused_ = true; }
    void resume() { paused_ = false; }

    void reply(const velta::protocol::Reply& reply) { output_.append(reply); }
    void subscribe(std::set<std::string> tables, bool leaveOutOwn);
    // A commit changed these tables; `own` if it was this client's. They are sent in one notice once the
    // output is empty.
    void tablesChanged(const velta::NameList& tables, bool own);
    // Appends the pending notice now, so that it goes out before the next reply.
    void putNotice();
    // Sends what the socket takes, and sets what the dispatcher waits for next.
    void flush();

    // Bytes of output that wait.
    std::size_t unsent() const { return output_.size(); }
    // Since when no byte could be sent, while so much waits that no request is taken; otherwise none. A
    // notice alone is never that large.
    std::optional<Clock::time_point> stalledSince() const { return stalledSince_; }

    bool isClosed() const { return closed_; }
    void close() { closed_ = true; }
    // Closes, and logs that the client did `what` and is closed for it.
    void closeFor(const char* what, const std::string& detail = {});

private:
    static constexpr std::size_t nearlySent = 64 * 1024; // bytes of unsent output, at most

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
    std::optional<velta::protocol::Request> request_; // the next one, if it has arrived
    Output output_;
    std::optional<Clock::time_point> stalledSince_;
    std::set<std::string> subscribed_;
    std::set<std::string> owed_; // changed tables of the next notice
    bool leaveOutOwn_ = false;
};

} // namespace store
