#pragma once

#include "cfg/notices.h"
#include "cfg/stopping.h"
#include "log.h"
#include "velta/namelist.h"
#include "velta/protocol/frame.h"
#include "velta/protocol/message.h"
#include "velta/protocol/resultcode.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace orv::cfg {

// One connection to the configuration store: requests and their replies one after the other, and the notices
// that come in between.
//
// It trusts nobody: the server must be run by root or by the own user, and a malformed message closes the
// connection with one warning line in the log module that has the client's name. Nothing here throws for what
// the other end does.
class Connection {
public:
    using EResultCode = velta::protocol::EResultCode;
    // Called for each piece of a table while it comes in; its cells hold for the time of the call. Returns
    // null, or what is wrong with the piece: the connection closes then.
    using PieceHandler = std::function<const char*(const velta::protocol::RowsPiece&)>;
    using CloseHandler = std::function<void(const EResultCode& why)>;
    using Callback = std::function<void()>;

    // `answerTimeout`: seconds to wait for an answer, the greeting's included.
    Connection(std::string socketPath, std::string clientName, unsigned answerTimeout);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Connects and greets. The connection must be closed. Where the store's queue of those who want to
    // connect is full, it waits up to `patience` for a place; tooManyClients says that there was none.
    // Without any patience a full queue is a store that is not there.
    EResultCode open(std::chrono::milliseconds patience = std::chrono::milliseconds(0));
    // The store is there, but it is of no use: closes the connection with one warning line, however often the
    // same goes wrong before forgetComplaint().
    EResultCode giveUp(EResultCode why);
    // From here on a complaint is logged even if it is the same as the one before.
    void forgetComplaint() { lastComplaint_.clear(); }
    // Harmless on a closed one. The notices that came in are forgotten.
    void close() { shut({}); }
    bool isOpen() const { return socket_ >= 0; }
    // For a dispatcher to wait on; -1 where closed.
    int descriptor() const { return socket_; }
    // From the moment on when the descriptor is readable, nothing is waited for and nothing opens: exchanges
    // close the connection and fail. Only what is asked within a transaction may still be answered, for a
    // short time.
    void stopOn(int descriptor) { stopping_.on(descriptor); }
    bool isStopping() { return stopping_.requested(); }
    // Whether a transaction is open: what is asked belongs to it. Over with the connection.
    void setInTransaction(bool inTransaction) { inTransaction_ = inTransaction; }
    // Called whenever an open connection closes, while its descriptor still is one. The reason is success
    // where close() was called.
    void onClose(CloseHandler handler) { onClose_ = std::move(handler); }
    // Called when more than its answer came in with an exchange: receive() and takeNotices() have something
    // that the descriptor does not tell of.
    void onLeftover(Callback callback) { onLeftover_ = std::move(callback); }

    // Sends a request and waits for its answer, which is of the expected kind or a failure. A failure that
    // the store answered leaves the connection open; no answer in time, or a malformed one, closes it. Gives
    // the request its sequence number.
    EResultCode exchange(velta::protocol::Request& request, velta::protocol::Reply& reply,
                         velta::protocol::ReplyKind expected = velta::protocol::ReplyKind::Done);
    // The same for a request that is answered by rows.
    EResultCode exchangeRows(velta::protocol::Request& request, const PieceHandler& onPiece);

    // Takes in what has arrived, without waiting.
    void receive();
    // Takes in what came with an earlier answer, without asking the socket.
    void takeLeftover();
    // The tables of the notices since the last call, in order of arrival, each as often as it was notified
    // unless that is very often.
    velta::NameList takeNotices() { return notices_.take(); }

private:
    friend class Pipeline; // does with many requests what exchange() does with one

    using Clock = std::chrono::steady_clock;

    EResultCode checkPeer();
    EResultCode greet();
    Clock::time_point answerDeadline() const { return Clock::now() + answerTimeout_; }
    EResultCode encode(velta::protocol::Request& request, std::string& bytes);
    EResultCode send(velta::protocol::Request& request, Clock::time_point deadline);
    EResultCode awaitReply(const velta::protocol::Request& request, velta::protocol::ReplyKind expected,
                           Clock::time_point deadline, velta::protocol::Reply& reply);
    EResultCode awaitAnyReply(Clock::time_point deadline, velta::protocol::Reply& reply);
    EResultCode check(const velta::protocol::Reply& reply, std::uint32_t sequence,
                      velta::protocol::ReplyKind expected);
    EResultCode wait(short events, Clock::time_point deadline);
    void tellLeftover() const;
    EResultCode readAvailable();
    bool takeBuffered();
    EResultCode nextReply(velta::protocol::Reply& reply, bool& found);
    EResultCode lost(EResultCode why);
    void shut(const EResultCode& why);
    EResultCode broken(const char* what);
    void complain(const std::string& text);

    std::string socketPath_;
    std::string clientName_;
    std::chrono::seconds answerTimeout_;
    horad::Log log_;
    int socket_ = -1;
    bool greeted_ = false;
    bool inTransaction_ = false;
    Stopping stopping_;
    std::string lastComplaint_; // whoever tries again and again logs it once
    std::uint32_t sequence_ = 0;
    velta::protocol::FrameReader frames_;
    Notices notices_;
    CloseHandler onClose_;
    Callback onLeftover_;
};

} // namespace orv::cfg
