#pragma once

#include "store/server/answer.h"
#include "store/server/session.h"
#include "store/server/transactionqueue.h"
#include "store/storage/database.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace store {

// The readings of tables that are too large for one turn. Each goes out in pieces, between which others are
// served, from a snapshot of its own. There are few snapshots, so a reading may have to wait for one; whoever
// had one least recently is next. A client that is slow to take its rows loses the snapshot: the rest is kept
// in memory as far as there is room for it, else the client is closed.
class Readings {
public:
    struct Limits {
        std::size_t piece = 64 * 1024;                       // bytes of cells in one turn
        Clock::duration snapshot = std::chrono::seconds(10); // for a reading to hold one
        std::size_t kept = 16 * 1024 * 1024;                 // bytes of all rests in memory
    };
    Readings(Database& database, const Limits& limits) : database_(database), limits_(limits) {}

    // The answer to a request for all rows of a table: the rows, or later.
    Answer begin(Session& session, std::uint32_t sequence, const std::string& table, Database::View view);

    bool has(ClientId client) const { return readings_.count(client) != 0; }
    // Whether a piece was given out and others follow.
    bool isGivenOut(ClientId client) const;
    // Whether the client's reading has a piece, or a failure, to give out.
    bool canGoOn(ClientId client) const;
    // That piece. The reading is to be ended after a failure and after the last piece.
    Answer goOn(ClientId client);
    std::uint32_t sequence(ClientId client) const { return readings_.at(client).sequence; }
    // It gives out this failure next. What it read from is free.
    void fail(ClientId client, Database::Result why);
    // Nothing more is answered.
    void end(ClientId client) { readings_.erase(client); }
    // The client is gone.
    void forget(ClientId client);

    // Gives free snapshots to those that wait.
    bool admit(Clock::time_point now);
    // Takes snapshots back from those that hold one for too long.
    void expire(Clock::time_point now);
    Clock::time_point nextDeadline() const;

private:
    struct Reading {
        Session* session;
        std::uint32_t sequence;
        std::string table;
        Database::View view;
        std::unique_ptr<TableReading> rows; // none while it waits for a snapshot
        Database::Result failure;           // of its beginning
        std::uint32_t given = 0;            // rows
        Clock::time_point since;            // it holds its snapshot
    };

    Reading* nextToAdmit();
    void start(Reading& reading);
    void takeSnapshotBack(Reading& reading);
    static Database::Result keepRest(TableReading& rows, std::size_t most);
    std::size_t kept() const;

    Database& database_;
    const Limits limits_;
    std::map<ClientId, Reading> readings_;
    std::map<ClientId, Clock::time_point> hadSnapshot_; // of clients that are here
};

} // namespace store
