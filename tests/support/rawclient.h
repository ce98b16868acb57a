#pragma once

#include "unit/storage/testtables.h"
#include "velta/protocol/frame.h"
#include "velta/protocol/message.h"

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

// One reply, with its rows taken out of the message.
struct Answer {
    velta::protocol::Reply reply;
    std::vector<velta::ValueList> rows;
};

// The other end of a connection, byte by byte. It never waits: whoever drives the server asks it again.
class RawClient {
public:
    explicit RawClient(const std::string& path);
    ~RawClient();
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    // How many bytes the kernel took.
    std::size_t sendBytes(const std::string& bytes) const;
    // Returns the sequence number that it was sent with.
    std::uint32_t send(const velta::protocol::Request& request) { return sendAll({request}); }
    // Sends all at once; returns the last one's sequence number.
    std::uint32_t sendAll(const std::vector<velta::protocol::Request>& requests);
    // Reads what has arrived, not much more than that many bytes.
    void receive(std::size_t most = SIZE_MAX);
    void disconnect();
    // From now on it only reads.
    void finishSending() const;
    // Whether the server closed the connection; what it sent before may be unread.
    bool isHungUp() const;

    bool atEnd = false; // the server closed the connection
    std::deque<Answer> answers;
    std::deque<velta::NameList> notices;
    // Notices and answers in the order in which they came, as text: "notice", or the sequence number.
    std::vector<std::string> order;

private:
    void take(std::string_view message);

    int descriptor_;
    std::uint32_t sequence_ = 0;
    velta::protocol::FrameReader input_;
};

// Requests by kind.
namespace ask {
using velta::protocol::Request;
using velta::protocol::RequestKind;

Request hello(std::uint32_t version = velta::protocol::version);
Request ofTable(RequestKind kind, const std::string& table);
Request readTable(const std::string& table);
Request writeSingle(const std::string& table, const velta::ValueList& values);
Request insert(const std::string& table, const velta::ValueList& values);
Request begin(std::uint32_t milliseconds);
Request subscribe(const velta::NameList& tables, bool leaveOutOwn = false);
Request plain(RequestKind kind);
} // namespace ask
