#pragma once

#include "store/repeats.h"
#include "store/storage/sqlite.h"

#include <chrono>
#include <cstdint>

namespace store {

// The write-ahead log's length, and its way into the database. SQLite alone would bring it there inside of a
// commit, while a client waits.
class Checkpoints {
public:
    using Clock = std::chrono::steady_clock;

    // Bytes of the log from which no new snapshot should begin, and from which the open ones should end: both
    // keep the log from starting anew.
    static constexpr std::int64_t longLog = 4 * 1024 * 1024;
    static constexpr std::int64_t tooLongLog = 12 * 1024 * 1024;

    // Checkpoints go through `reader`, which holds no transaction. Both outlive it.
    Checkpoints(Connection& writer, Connection& reader) : writer_(writer), reader_(reader) {}

    // Begins to follow the log, when the writer was opened. Throws StorageError.
    void watch();

    // Pages in the log that are not in the database, as far as this knows. None after a whole checkpoint: the
    // next commit then begins the log anew where no reader holds it.
    std::uint64_t pages() const { return pages_; }
    bool logIsLong() const { return bytesOf(pages_) >= longLog; }
    bool logIsTooLong() const { return bytesOf(pages_) >= tooLongLog; }
    // Bytes that the log's file must have by what was written to it.
    std::int64_t logBytes() const { return bytesOf(written_); }

    // Whether the database holds some of what the log holds.
    bool isPartlyMoved() const { return moved_; }

    // Brings a log that has grown into the database. That a reader holds it back is no failure; one that
    // fails is logged.
    void tidy(Clock::time_point now);
    // When tidy() has a line to write, at most.
    Clock::time_point nextDeadline() const { return failures_.deadline().value_or(Clock::time_point::max()); }
    // Tells of failures that were only counted so far.
    void flushLines() { failures_.flushAll(); }
    // A reader that may have held the log back is gone: the next tidy() tries again.
    void readerEnded() { tryAgain_ = true; }
    // Brings all of the log into the database, synced. SQLITE_OK, SQLITE_BUSY where a reader holds it back,
    // or the error.
    [[nodiscard]] int bringAll();
    // Asks SQLite anew how long the log is: another program may have emptied it in good order.
    void recount();
    // bringAll(), and the log's file is empty then.
    [[nodiscard]] int empty();

private:
    static int onCommit(void* self, sqlite3*, const char*, int pages);
    std::int64_t bytesOf(std::uint64_t pages) const;
    int run(int mode);
    bool isDue() const;

    Connection& writer_;
    Connection& reader_;
    std::int64_t pageBytes_ = 0;
    std::uint64_t pages_ = 0;
    std::uint64_t written_ = 0; // pages in the log's file
    std::uint64_t heldBackAt_ = 0;
    bool tryAgain_ = false;
    bool moved_ = false;
    log::Repeats failures_;
};

} // namespace store
