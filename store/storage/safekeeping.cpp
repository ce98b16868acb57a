#include "store/storage/safekeeping.h"

#include "store/log.h"
#include "store/storage/databaseformat.h"

#include <algorithm>
#include <iterator>
#include <new>

namespace store {

namespace code = velta::protocol::code;
using Result = Safekeeping::Result;

namespace {

// Errors of COMMIT after which the log can't hold the whole commit: nothing was written, or a write failed.
// After any other error the log may hold all of it.
bool leavesNoCommit(int sqliteCode) {
    switch (sqliteCode & 0xff) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
    case SQLITE_FULL:
    case SQLITE_READONLY:
        return true;
    default:
        return sqliteCode == SQLITE_IOERR_WRITE;
    }
}

} // namespace

Safekeeping::Safekeeping(const Schema& schema, DatabaseFile& file, Connections& connections,
                         std::function<Clock::time_point()> now)
    : schema_(schema), file_(file), connections_(connections), now_(std::move(now)) {}

Result Safekeeping::beforeWriting() {
    retry();
    // If the log was cut, what the transaction writes to it would hide that.
    if (state_ == State::Sound && file_.logIsCut(connections_.checkpoints().logBytes()))
        (void)look(); // nothing is written yet, so the database may be reopened
    return state_ == State::Sound ? Result() : refusal();
}

Safekeeping::Result Safekeeping::refusal() const {
    return {code::storageFailed, "commits are refused until the database could be opened anew: " + reason_};
}

Result Safekeeping::beforeCommit(const velta::NameList& touched) {
    changed_.reserve(changed_.size() + touched.size());
    pending_ = touched;
    if (state_ != State::Sound)
        return refusal();
    const Displaced found = displaced();
    noteDatabaseGone(found == Displaced::Database);
    if (found == Displaced::Database) // the commit would go into a file that no later start opens
        return {code::storageFailed, "the database file was removed, moved or replaced: " + file_.path()};
    if (found == Displaced::LogCut) { // what this commit writes would hide that
        (void)rescue(found);
        return {code::storageFailed, "the log of the database was cut by another hand: " + file_.logPath()};
    }
    return {};
}

Result Safekeeping::afterCommit() noexcept {
    try {
        return lookAfterCommit();
    } catch (const std::bad_alloc&) {
        pendingChanged();
        return code::outcomeUnknown;
    }
}

Result Safekeeping::lookAfterCommit() {
    const Displaced found = displaced();
    if (found != Displaced::Nothing)
        noteDatabaseGone(found == Displaced::Database);
    if (found == Displaced::Nothing || (found != Displaced::Database && rescue(found))) {
        pending_.clear();
        return {};
    }
    pendingChanged();
    if (found == Displaced::Database)
        return {code::outcomeUnknown, "the database file was removed, moved or replaced: " + file_.path()};
    return {code::outcomeUnknown, "the log of the database was removed, replaced or cut: " + file_.logPath()};
}

Result Safekeeping::afterFailedCommit(int sqliteCode, const Result& failure) noexcept {
    state_ = State::Distrusted; // until the end of this function
    unknown_.swap(pending_);
    try {
        // No later start finds what is in memory.
        if (leavesNoCommit(sqliteCode) || file_.inMemory() || neutralise()) {
            state_ = State::Sound;
            unknown_.clear();
            return failure;
        }
        distrust("a commit failed, and nobody knows whether the disk holds it: " + failure.detail());
        return {code::outcomeUnknown, failure.detail()};
    } catch (const std::bad_alloc&) {
        return state_ == State::Sound ? code::outOfMemory : code::outcomeUnknown;
    }
}

// The next start would find a commit that was written completely but not synced. A small commit overwrites
// its first frame in the log; the checksums of the following frames then no longer continue it.
bool Safekeeping::neutralise() {
    try {
        rewriteHeader(connections_.writer());
    } catch (const StorageError& error) {
        report(std::string("a commit that failed can't be taken out of the log: ") + error.what());
        return false;
    }
    // Then the log starts over, and nothing of the failed commit is left.
    (void)connections_.checkpoints().bringAll();
    return true;
}

bool Safekeeping::look() {
    if (state_ != State::Sound)
        return false;
    const Displaced found = displaced();
    noteDatabaseGone(found == Displaced::Database);
    if (found == Displaced::Nothing || found == Displaced::Database)
        return true;
    (void)rescue(found);
    return false;
}

Displaced Safekeeping::displaced() {
    Checkpoints& checkpoints = connections_.checkpoints();
    Displaced found = file_.displaced(checkpoints.logBytes());
    if (found == Displaced::LogCut) {
        checkpoints.recount();
        found = file_.displaced(checkpoints.logBytes());
    }
    return found;
}

// Returns whether everything that was committed is in the database afterwards.
bool Safekeeping::rescue(Displaced found) {
    report("the log of the database was removed, replaced or cut by another hand: " + file_.logPath());
    const bool safe = found == Displaced::Log && bringToSafety();
    if (!safe && state_ == State::Endangered)
        return false;
    if (!safe)
        lose();
    (void)openAnew();
    return safe;
}

// Moves the log that SQLite has open into the database, whatever lies in its place by now.
bool Safekeeping::bringToSafety() {
    try {
        setLogAside(false); // first of all: even if this process is killed, no start must find that file
    } catch (const StorageError& error) {
        report(error.what());
    }
    connections_.snapshots().closeAll(); // readings would hold the log back
    const int result = connections_.checkpoints().bringAll();
    if (result == SQLITE_OK)
        return true;
    if (result == SQLITE_IOERR_SHORT_READ || (result & 0xff) == SQLITE_CORRUPT)
        return false; // the log was also cut
    state_ = State::Endangered;
    reason_ = "the log can't be brought into it: " + connections_.lastCommit().textOf(result);
    nextTry_ = now_() + retryPace;
    report(reason_);
    return false;
}

void Safekeeping::setLogAside(bool ownToo) {
    const std::string aside = file_.setLogAside(ownToo);
    if (!aside.empty())
        log::error("what lay in the place of the log is now " + aside);
}

// The log was cut. If the database holds a part of it already, nothing more of it must be used: it could
// replace a page by an older state.
void Safekeeping::lose() {
    mixed_ = connections_.checkpoints().isPartlyMoved();
    log::error("what the log of the database held since it was last brought into it is lost");
    for (const Table& table : schema_.tables())
        changed_.push_back(table.name);
}

bool Safekeeping::openAnew() {
    nextTry_ = now_() + retryPace;
    connections_.close();
    try {
        setLogAside(mixed_);
        if (!connections_.open() && state_ == State::Distrusted)
            throw StorageError("the log can't be brought into it");
    } catch (const StorageError& error) {
        connections_.close();
        distrust(error.what());
        return false;
    } catch (const std::bad_alloc&) {
        connections_.close();
        state_ = State::Distrusted;
        return false;
    }
    log::info("the database was opened anew: " + file_.name());
    state_ = State::Sound;
    mixed_ = false;
    changed_.insert(changed_.end(), unknown_.begin(), unknown_.end());
    unknown_.clear();
    return true;
}

void Safekeeping::retry() {
    failures_.flush(now_());
    if (state_ == State::Sound || now_() < nextTry_)
        return;
    if (state_ == State::Endangered)
        (void)rescue(Displaced::Log);
    else
        (void)openAnew();
}

Safekeeping::Clock::time_point Safekeeping::nextDeadline() const {
    const Clock::time_point line = failures_.deadline().value_or(Clock::time_point::max());
    return state_ == State::Sound ? line : std::min(line, nextTry_);
}

void Safekeeping::distrust(const std::string& reason) {
    state_ = State::Distrusted;
    reason_ = reason;
    report(reason);
}

void Safekeeping::noteDatabaseGone(bool gone) {
    if (gone == databaseGone_)
        return;
    databaseGone_ = gone;
    if (gone)
        log::error("the database file was removed, moved or replaced, commits are refused: " + file_.path());
    else
        log::info("the database file is back: " + file_.path());
}

void Safekeeping::report(const std::string& failure) {
    failures_.error(failure, failure, now_());
}

void Safekeeping::pendingChanged() noexcept {
    std::move(pending_.begin(), pending_.end(), std::back_inserter(changed_)); // room is reserved
    pending_.clear();
}

velta::NameList Safekeeping::takeChanged() {
    std::sort(changed_.begin(), changed_.end());
    changed_.erase(std::unique(changed_.begin(), changed_.end()), changed_.end());
    return std::exchange(changed_, {});
}

} // namespace store
