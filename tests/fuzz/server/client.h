#pragma once

#include "support/rawclient.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <set>
#include <string>

namespace fuzz {

// A connection, and the requests on it that are not answered yet, however their bytes were sent.
class Client {
public:
    using Request = velta::protocol::Request;
    using Time = std::chrono::steady_clock::time_point;

    Client(const std::string& path, bool oneTooMany)
        : tooMany(oneTooMany), connected(std::chrono::steady_clock::now()), raw_(path) {}

    // Sends as much as the kernel takes, and removes that from the front.
    void send(std::string& bytes);
    void finishSending();
    // Whether something arrived; the end of the connection counts.
    bool receive();

    bool atEnd() const { return raw_.atEnd; }
    // The next answer, with all its pieces.
    bool hasAnswer() const;
    const Answer& answer() const { return answers_.front(); }
    void dropAnswer() { answers_.pop_front(); }
    std::deque<velta::NameList> takeNotices();

    std::deque<Request> asked;
    const bool tooMany;      // the server has to turn it away
    bool broken = false;     // it sent something that is no request
    bool finished = false;   // it sends no more
    bool deaf = false;       // it reads nothing for now
    std::string outbox;      // what it holds back
    bool collecting = false; // it holds back for now

    // What the answers have shown.
    bool greeted = false;
    bool refused = false;
    bool expired = false; // its transaction is, and it was not told yet
    std::set<std::string> subscribed;
    bool leaveOutOwn = false;
    bool subscribedNow = false;              // since the last look
    std::optional<std::uint64_t> waitsSince; // which look found it waiting for its turn
    Time waitsUntil;
    Time keepsPlaceUntil; // in the line for the transaction, after it was told busy
    const Time connected;

private:
    void noteSent(const char* bytes, std::size_t size);
    void takeAnswers();

    RawClient raw_;
    velta::protocol::FrameReader sent_;
    std::deque<Answer> answers_; // of the last one pieces may be missing
};

} // namespace fuzz
