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

// Readings of tables that are too large for one turn. A reading reads from a snapshot of its own and is sent
// in pieces; other clients are served in between. There are only a few snapshots, so a reading may have to
// wait for one: the client that had one least recently is next. A client that takes its rows too slowly loses
// its snapshot. The remaining rows are then read into memory if there is room for them; otherwise the client
// is closed.
class Readings {
public:
    struct Limits {
        std::size_t piece = 64 * 1024;                       // bytes of cells in one turn
        Clock::duration snapshot = std::chrono::seconds(10); // how long a reading may hold one
        std::size_t kept = 16 * 1024 * 1024; // bytes of remaining rows in memory, of all readings
    };
    Readings(Database& database, const Limits& limits) : database_(database), limits_(limits) {}

    // The answer to a request for all rows of a table: the rows, or When::Later.
    Answer begin(Session& session, std::uint32_t sequence, const std::string& table, Database::View view);

    bool has(ClientId client) const { return readings_.count(client) != 0; }
    // Whether a piece was sent and more follow.
    bool isGivenOut(ClientId client) const;
    // Whether the client's reading has a piece or a failure to send.
    bool canGoOn(ClientId client) const;
    // That piece or failure. After a failure and after the last piece the caller calls end().
    Answer goOn(ClientId client);
    std::uint32_t sequence(ClientId client) const { return readings_.at(client).sequence; }
    // The reading will send this failure next. Its snapshot is given back at once.
    void fail(ClientId client, Database::Result why);
    // Ends the reading without a further answer.
    void end(ClientId client) { readings_.erase(client); }
    // The client is gone.
    void forget(ClientId client);

    // Gives free snapshots to waiting readings. Whether there were any of both.
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
        Database::Result failure;           // to be sent instead of a piece
        std::uint32_t given = 0;            // rows
        Clock::time_point since;            // since when it holds its snapshot
    };

    Reading* nextToAdmit();
    void start(Reading& reading);
    void takeSnapshotBack(Reading& reading);
    static Database::Result keepRest(TableReading& rows, std::size_t most);
    std::size_t kept() const;

    Database& database_;
    const Limits limits_;
    std::map<ClientId, Reading> readings_;
    std::map<ClientId, Clock::time_point> hadSnapshot_; // when each connected client last got one
};

} // namespace store
