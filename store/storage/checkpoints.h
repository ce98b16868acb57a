#pragma once

#include "store/repeats.h"
#include "store/storage/sqlite.h"

#include <chrono>
#include <cstdint>

namespace store {

// Follows the length of the write-ahead log, and moves the log's content into the database (a checkpoint).
// SQLite by itself would do so within a commit, while a client waits.
class Checkpoints {
public:
    using Clock = std::chrono::steady_clock;

    // In bytes. From longLog on no new snapshot should begin, from tooLongLog on the open ones should end:
    // open snapshots keep the log from starting over.
    static constexpr std::int64_t longLog = 4 * 1024 * 1024;
    static constexpr std::int64_t tooLongLog = 12 * 1024 * 1024;

    // Checkpoints go through `reader`, which holds no transaction. Both outlive it.
    Checkpoints(Connection& writer, Connection& reader) : writer_(writer), reader_(reader) {}

    // Begins to follow the log; to be called when the writer was opened. Throws StorageError.
    void watch();

    // Pages of the log that are not in the database, as far as is known. 0 after a complete checkpoint: the
    // next commit then starts the log over, if no reader holds it.
    std::uint64_t pages() const { return pages_; }
    bool logIsLong() const { return bytesOf(pages_) >= longLog; }
    bool logIsTooLong() const { return bytesOf(pages_) >= tooLongLog; }
    // How many bytes the log's file has at least, given what was written to it.
    std::int64_t logBytes() const { return bytesOf(written_); }

    // Whether the database holds some of what the log holds.
    bool isPartlyMoved() const { return moved_; }

    // Makes a checkpoint if the log has grown. It is no failure if a reader holds the log back; a failure is
    // logged.
    void tidy(Clock::time_point now);
    // No later than this, tidy() has a line to log.
    Clock::time_point nextDeadline() const { return failures_.deadline().value_or(Clock::time_point::max()); }
    // Logs the failures that were only counted so far.
    void flushLines() { failures_.flushAll(); }
    // A reader that may have held the log back is gone: the next tidy() tries again.
    void readerEnded() { tryAgain_ = true; }
    // Moves the whole log into the database and syncs it. SQLITE_OK, SQLITE_BUSY if a reader holds it back,
    // or the error.
    [[nodiscard]] int bringAll();
    // Asks SQLite again how long the log is: another program may have made a checkpoint, as it is allowed to.
    void recount();
    // The same as bringAll(), and empties the log's file.
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
