#pragma once

#include "cfg/connection.h"
#include "velta/protocol/message.h"
#include "velta/protocol/resultcode.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace orv::cfg {

// Sends the writes of a transaction ahead of their answers, so that many of them cost no exchange each.
//
// Only a bounded number of them waits for answers at a time. While the store reads nothing, its answers are
// read: so the two ends never wait for each other, and memory stays bounded.
class Pipeline {
public:
    using EResultCode = velta::protocol::EResultCode;

    // The connection is not owned. Nothing else uses it until finish().
    explicit Pipeline(Connection& connection) : connection_(connection) {}
    ~Pipeline();
    Pipeline(const Pipeline&) = delete;
    Pipeline& operator=(const Pipeline&) = delete;

    // Sends a request that is answered by Done. Returns the first failure of any request that is known by
    // now. After a failure nothing more is sent.
    EResultCode send(velta::protocol::Request request);
    // Waits for the answers that are missing, and returns the first failure.
    EResultCode finish();
    // How many requests succeeded before the first failure. In the order of sending, the next one is the one
    // that failed.
    std::size_t done() const { return done_; }

private:
    EResultCode encode(velta::protocol::Request& request);
    // Sends what is to go out, and takes answers until no more than `mayMiss` are missing.
    void exchange(std::size_t mayMiss);
    void exchangeOrThrow(std::size_t mayMiss);
    bool sendSome();
    bool takeSome();
    void take(const velta::protocol::Reply& reply);
    bool isWorking(std::size_t mayMiss) const;

    Connection& connection_;
    std::string bytes_; // that wait to go out
    std::size_t sent_ = 0;
    std::size_t missing_ = 0; // answers
    std::uint32_t nextSequence_ = 0;
    std::size_t done_ = 0;
    EResultCode failure_; // the first
};

} // namespace orv::cfg
