#pragma once

#include "store/cluster/bytequeue.h"
#include "store/cluster/jsonstream.h"
#include "store/cluster/remote.h"
#include "store/cluster/rpcmessage.h"
#include "store/descriptor.h"
#include "velta/net/eventdispatcher.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace store {

// A connection to a member by JSON-RPC, as RFC 7047 has it: requests and answers, notifications of the
// member, and its "echo". Nothing in it waits. Its memory is bounded: by the largest message either way.
// Whatever the member sends, the worst that follows is that the connection is closed, with a reason. So it is
// if memory runs out, unless that is while a Json is destroyed, which takes some: that ends the program.
//
// Its owner calls settle() after each round of the dispatcher, and when nextDeadline() has come.
class RpcConnection {
public:
    using Clock = std::chrono::steady_clock;

    // The answer to a call: its result, or the member's error (then `error` is not null).
    using Answer = std::function<void(const Json& result, const Json& error)>;
    // These and the answers may call open(), call() and close(), but not destroy the connection. If one
    // throws an exception of Json, or runs out of memory, the connection is closed: what the member sent is
    // not what was expected of it.
    struct Events {
        std::function<void()> opened;
        // `params` is an array.
        std::function<void(const std::string& method, const Json& params)> notified;
        // Also if it could not be opened. Calls without an answer never get one: their `Answer`s are dropped
        // before. Called from the dispatcher's callbacks and settle(), never from within open(), call() and
        // close(). The reason says what the member did: "it closed the connection".
        std::function<void(const std::string& reason)> closed;
    };
    struct Limits {
        std::size_t message = std::size_t{16} * 1024 * 1024; // bytes, received
        std::size_t unsent = std::size_t{4} * 1024 * 1024;   // bytes
        Clock::duration connecting = std::chrono::seconds(5);
        // Nothing was received for so long: an "echo" is sent; and then: the connection is given up.
        Clock::duration quiet = std::chrono::seconds(15);
        Clock::duration silent = std::chrono::seconds(25);
    };

    // The dispatcher outlives it.
    RpcConnection(velta::net::EventDispatcher& dispatcher, Events events, Limits limits);
    RpcConnection(velta::net::EventDispatcher& dispatcher, Events events);
    ~RpcConnection();
    RpcConnection(const RpcConnection&) = delete;
    RpcConnection& operator=(const RpcConnection&) = delete;

    // Begins to connect; ends a connection that there was, without telling.
    void open(const Remote& remote);
    // From `opened` on, until it fails: that may be before `closed` is called.
    bool isOpen() const { return state_ == State::Open; }
    // `params` is an array and holds texts in UTF-8 without zero characters only. While it is not open the
    // call is dropped, like those without an answer.
    void call(const std::string& method, const Json& params, Answer answer);
    // Ends it; nothing is told any more.
    void close();

    // All time-outs count by the times that are passed here.
    void settle(Clock::time_point now);
    // Clock::time_point(), which is long past, if settle() has something to do now; max() if it never has.
    Clock::time_point nextDeadline() const;

private:
    enum class State { Closed, Connecting, Open, Failed };

    void connect(const Remote& remote);
    void onReady(unsigned ready);
    void finishConnecting();
    void receive();
    void takeMessages();
    void take(const RpcMessage& message);
    void takeAnswer(const RpcMessage& message);
    void send(const std::string& text);
    void flush();
    void setInterest();
    void watchSilence(Clock::time_point now);
    void disconnect();
    // What failed is told later, by tellFailure().
    void fail(std::string reason);
    void tellFailure();
    // Runs `work`, and fails if it throws for what the member sent or for lack of memory.
    template <typename Work>
    void guarded(Work work);

    velta::net::EventDispatcher& dispatcher_;
    const Events events_;
    const Limits limits_;

    State state_ = State::Closed;
    std::optional<Descriptor> descriptor_;
    unsigned interest_ = 0;
    std::string failure_; // while it has failed

    JsonStream input_;
    ByteQueue output_;
    std::map<std::uint64_t, Answer> calls_; // that have no answer yet
    std::uint64_t nextCall_ = 1;

    bool heard_ = false;                      // since the last settle()
    std::optional<Clock::time_point> since_;  // when it began to connect, or was heard last
    std::optional<Clock::time_point> probed_; // when an "echo" was sent for its silence
};

} // namespace store
