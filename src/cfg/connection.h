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

// One connection to the configuration store: requests with their replies, one after the other, and the
// notices in between.
//
// It does not trust the other end: the server must be run by root or by this process's user, and a malformed
// message closes the connection with one warning line, in the log module that has the client's name. Nothing
// that the other end does makes it throw.
class Connection {
public:
    using EResultCode = velta::protocol::EResultCode;
    // Called for each piece of a table as it arrives; its cells are valid only during the call. Returns null,
    // or what is wrong with the piece: the connection then closes.
    using PieceHandler = std::function<const char*(const velta::protocol::RowsPiece&)>;
    using CloseHandler = std::function<void(const EResultCode& why)>;
    using Callback = std::function<void()>;

    // `answerTimeout`: seconds to wait for an answer, the greeting's included.
    Connection(std::string socketPath, std::string clientName, unsigned answerTimeout);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Connects and greets; the connection must be closed before. For `patience` see connectTo().
    EResultCode open(std::chrono::milliseconds patience = std::chrono::milliseconds(0));
    // The store answers but can't be used: closes the connection with one warning line. The same line is
    // logged again only after forgetComplaint().
    EResultCode giveUp(EResultCode why);
    // From here on a complaint is logged even if it is the same as the one before.
    void forgetComplaint() { lastComplaint_.clear(); }
    // Harmless on a closed connection. Notices that were received are forgotten.
    void close() { shut({}); }
    bool isOpen() const { return socket_ >= 0; }
    // For a dispatcher to wait on; -1 while closed.
    int descriptor() const { return socket_; }
    // The descriptor becomes readable when the program is to stop. From then on open() fails, and exchanges
    // do not wait: they close the connection and fail. Only the requests of an open transaction may still be
    // answered, for a short time.
    void stopOn(int descriptor) { stopping_.on(descriptor); }
    bool isStopping() { return stopping_.requested(); }
    // Says whether requests belong to an open transaction. Closing the connection ends it.
    void setInTransaction(bool inTransaction) { inTransaction_ = inTransaction; }
    // Called whenever an open connection closes, while its descriptor is still valid. The reason is success
    // if close() was called.
    void onClose(CloseHandler handler) { onClose_ = std::move(handler); }
    // Called when an exchange received more than its answer: receive() and takeNotices() then have something
    // that the descriptor does not report.
    void onLeftover(Callback callback) { onLeftover_ = std::move(callback); }

    // Sends a request and waits for its answer, which is of the expected kind or a failure. A failure that
    // the store answered leaves the connection open; no answer in time, or a malformed one, closes it. Gives
    // the request its sequence number.
    EResultCode exchange(velta::protocol::Request& request, velta::protocol::Reply& reply,
                         velta::protocol::ReplyKind expected = velta::protocol::ReplyKind::Done);
    // The same for a request that is answered by rows.
    EResultCode exchangeRows(velta::protocol::Request& request, const PieceHandler& onPiece);

    // Reads what has arrived, without waiting.
    void receive();
    // Takes what was read together with an earlier answer, without reading from the socket.
    void takeLeftover();
    // The tables of the notices since the last call, in order of arrival. A table may be named several times.
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
    std::string lastComplaint_; // so that repeated attempts log it once
    std::uint32_t sequence_ = 0;
    velta::protocol::FrameReader frames_;
    Notices notices_;
    CloseHandler onClose_;
    Callback onLeftover_;
};

} // namespace orv::cfg
