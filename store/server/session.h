#pragma once

#include "store/server/output.h"
#include "store/server/peer.h"
#include "store/server/transactionqueue.h"
#include "velta/namelist.h"
#include "velta/net/eventdispatcher.h"
#include "velta/protocol/frame.h"
#include "velta/protocol/message.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>

namespace store {

// The connection of one client: bytes in and out, and the notices that it is owed.
//
// It takes a request only when the answers before it are nearly all sent, so it holds one frame and one read
// of input, one answer of output, and a set of names. Whatever goes wrong closes it; its owner then drops it.
class Session {
public:
    using Handler = std::function<void(Session&, const velta::protocol::Request&)>;

    // Owns the descriptor. Throws std::system_error when the dispatcher can't take it.
    Session(velta::net::EventDispatcher& dispatcher, int descriptor, ClientId id, const Peer& peer,
            Handler handler);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    ClientId id() const { return id_; }
    bool isClosed() const { return closed_; }
    // Bytes of output that wait.
    std::size_t unsent() const { return output_.size(); }
    // Since when nothing of its output could be sent, if so much waits that no request is taken. A notice
    // alone is never that much.
    std::optional<Clock::time_point> stalledSince() const { return stalledSince_; }
    // Who it is, for a log line.
    std::string text() const;

    bool hasGreeted() const { return greeted_; }
    void setGreeted(const std::string& name);

    // Between the two no request is taken; notices go out.
    void pause() { paused_ = true; }
    void resume();

    // Append an answer; it goes out when the request is through.
    void done(std::uint32_t sequence, std::uint32_t number = 0);
    void failed(std::uint32_t sequence, const velta::protocol::EResultCode& result);
    void reply(const velta::protocol::Reply& reply) { output_.append(reply); }

    void subscribe(std::set<std::string> tables, bool leaveOutOwn);
    // Tables that a commit changed, of this client or of another. They go out in one notice once the output
    // is empty.
    void tablesChanged(const velta::NameList& tables, bool own);
    // Puts out what is owed now, in front of what comes next.
    void putNotice();

    // Sends what can be sent at once.
    void flush();
    void close() { closed_ = true; }

private:
    void onReady(unsigned ready);
    void readOnce();
    bool isHungUp() const;
    void work();
    bool handleNext();
    void send();
    void watchProgress(bool moved);
    void setInterest();
    bool wantsInput() const;

    velta::net::EventDispatcher& dispatcher_;
    const int descriptor_;
    const ClientId id_;
    const Peer peer_;
    const Handler handler_;

    std::string name_;
    bool greeted_ = false;
    bool paused_ = false;
    bool closed_ = false;
    unsigned interest_;
    velta::protocol::FrameReader input_;
    Output output_;
    std::optional<Clock::time_point> stalledSince_;
    std::set<std::string> subscribed_;
    std::set<std::string> owed_; // changed tables that the client was not told of yet
    bool leaveOutOwn_ = false;
};

} // namespace store
