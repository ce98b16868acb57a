#include "store/storage/checkpoints.h"

#include <algorithm>

namespace store {

namespace {

// A checkpoint is made when the log has this many pages. A log that starts over is overwritten, which costs
// the disk less than one that grows; and a short log takes less space.
constexpr std::uint64_t enough = 200;
// After an incomplete checkpoint, the next one is made when the log has grown by this many pages.
constexpr std::uint64_t furtherPages = 50;
static_assert(Checkpoints::longLog < Checkpoints::tooLongLog,
              "new snapshots wait before open ones have to end");
constexpr std::int64_t logHeader = 32;   // bytes
constexpr std::int64_t frameHeader = 24; // bytes

} // namespace

void Checkpoints::watch() {
    pageBytes_ = writer_.number("PRAGMA page_size");
    pages_ = 0;
    written_ = 0;
    heldBackAt_ = 0;
    moved_ = false;
    reader_.execute("PRAGMA synchronous = FULL"); // checkpoints are synced
    // This replaces SQLite's own hook, which would make checkpoints.
    sqlite3_wal_hook(writer_.handle(), onCommit, this);
}

int Checkpoints::onCommit(void* self, sqlite3*, const char*, int pages) {
    auto& checkpoints = *static_cast<Checkpoints*>(self);
    const auto now = static_cast<std::uint64_t>(pages);
    if (now <= checkpoints.written_) { // the log started over
        checkpoints.heldBackAt_ = 0;
        checkpoints.moved_ = false;
    }
    checkpoints.pages_ = now;
    checkpoints.written_ = now;
    return SQLITE_OK;
}

std::int64_t Checkpoints::bytesOf(std::uint64_t pages) const {
    if (pages == 0)
        return 0;
    return logHeader + static_cast<std::int64_t>(pages) * (pageBytes_ + frameHeader);
}

bool Checkpoints::isDue() const {
    return pages_ >= enough && (tryAgain_ || heldBackAt_ == 0 || pages_ >= heldBackAt_ + furtherPages);
}

void Checkpoints::tidy(Clock::time_point now) {
    failures_.flush(now);
    if (!isDue())
        return;
    tryAgain_ = false;
    const bool wasLong = logIsLong();
    int result = bringAll();
    heldBackAt_ = result == SQLITE_OK ? 0 : pages_;
    if (result == SQLITE_OK && wasLong)
        result = empty(); // otherwise the file keeps its size until the next commit
    if (result == SQLITE_OK || result == SQLITE_BUSY || result == SQLITE_LOCKED)
        return;
    const std::string line = "the log can't be brought into the database: " + reader_.textOf(result);
    failures_.error(line, line, now);
}

int Checkpoints::bringAll() {
    return run(SQLITE_CHECKPOINT_PASSIVE);
}

int Checkpoints::empty() {
    return run(SQLITE_CHECKPOINT_TRUNCATE);
}

void Checkpoints::recount() {
    (void)run(SQLITE_CHECKPOINT_PASSIVE); // if it fails, the last known numbers stay
}

int Checkpoints::run(int mode) {
    if (!reader_.isOpen())
        return SQLITE_CANTOPEN;
    int inLog = 0;
    int moved = 0;
    const int result = sqlite3_wal_checkpoint_v2(reader_.handle(), "main", mode, &inLog, &moved);
    if (result != SQLITE_OK)
        return (result & 0xff) == SQLITE_BUSY || (result & 0xff) == SQLITE_LOCKED ? SQLITE_BUSY : result;
    moved_ = moved > 0;
    written_ = static_cast<std::uint64_t>(std::max(inLog, 0));
    if (moved < inLog)
        return SQLITE_BUSY;
    pages_ = 0;
    return SQLITE_OK;
}

} // namespace store
