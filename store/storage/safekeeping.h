#pragma once

#include "store/repeats.h"
#include "store/storage/connections.h"
#include "store/storage/databasefile.h"
#include "velta/namelist.h"
#include "velta/protocol/resultcode.h"

#include <chrono>
#include <functional>
#include <string>

namespace store {

// Makes sure that a commit is kept if the client was told so, whatever happens to the files and the disk, and
// that nothing is kept of one that was refused.
class Safekeeping {
public:
    using Result = velta::protocol::EResultCode;
    using Clock = std::chrono::steady_clock;

    static constexpr auto retryPace = std::chrono::seconds(1); // of attempts to reopen the database

    // All outlive it.
    Safekeeping(const Schema& schema, DatabaseFile& file, Connections& connections,
                std::function<Clock::time_point()> now);

    // Before a transaction's first write: whether there is a database to write to.
    Result beforeWriting();
    // `touched` are the tables that the transaction has changed.
    Result beforeCommit(const velta::NameList& touched);
    // SQLite has committed and synced: whether the next start will find the commit. Allocates no memory if it
    // will.
    Result afterCommit() noexcept;
    // SQLite could not commit, for `failure`, and what it wrote was rolled back: makes sure that no later
    // start finds it committed.
    Result afterFailedCommit(int sqliteCode, const Result& failure) noexcept;

    // Checks whether the files are still in their places and, if not, rescues what they held. False if what
    // is open can't be used any further: the database was reopened, or waits for that.
    bool look();
    // Whether commits are refused or have an unknown outcome, for a reason that was logged already.
    bool isInTrouble() const { return databaseGone_ || state_ != State::Sound; }
    // If the database waits to be reopened, tries that when it is time.
    void retry();
    // When retry() has something to do next.
    Clock::time_point nextDeadline() const;
    // Logs the failures that were only counted so far.
    void flushLines() { failures_.flushAll(); }
    // Tables that may have changed although no client was told of a successful commit.
    velta::NameList takeChanged();

private:
    enum class State {
        Sound,
        Endangered, // the log was displaced, and is not moved into the database yet
        Distrusted, // it is unknown what the disk holds, or the database could not be reopened
    };

    Result refusal() const;
    Result lookAfterCommit();
    Displaced displaced();
    bool rescue(Displaced found);
    bool bringToSafety();
    bool neutralise();
    bool openAnew();
    void lose();
    void distrust(const std::string& reason);
    void noteDatabaseGone(bool gone);
    void report(const std::string& failure);
    void setLogAside(bool ownToo);
    void pendingChanged() noexcept;

    const Schema& schema_;
    DatabaseFile& file_;
    Connections& connections_;
    std::function<Clock::time_point()> now_;
    State state_ = State::Sound;
    std::string reason_; // why it is not sound
    Clock::time_point nextTry_;
    bool databaseGone_ = false;
    bool mixed_ = false;      // the log must not be read when the database is reopened
    velta::NameList pending_; // touched by the current commit
    velta::NameList unknown_; // touched by a commit whose outcome is unknown until the database is reopened
    velta::NameList changed_;
    log::Repeats failures_;
};

} // namespace store
