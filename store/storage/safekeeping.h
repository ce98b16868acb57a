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

// Sees to it that what was answered as committed is kept, whatever happens to the files and the disk, and
// that what was refused is not.
class Safekeeping {
public:
    using Result = velta::protocol::EResultCode;
    using Clock = std::chrono::steady_clock;

    static constexpr auto retryPace = std::chrono::seconds(1); // of opening the database anew

    // All outlive it.
    Safekeeping(const Schema& schema, DatabaseFile& file, Connections& connections,
                std::function<Clock::time_point()> now);

    // Before a transaction's first write: whether there is a database to write to.
    Result beforeWriting();
    // `touched` are the tables that the transaction has changed.
    Result beforeCommit(const velta::NameList& touched);
    // SQLite has committed and synced: whether that is kept where the next start finds it. It allocates no
    // memory as long as it is.
    Result afterCommit() noexcept;
    // SQLite could not commit, for `failure`, and what it wrote was rolled back: makes sure that no later
    // start finds it committed.
    Result afterFailedCommit(int sqliteCode, const Result& failure) noexcept;

    // Looks whether the files are where they were, and brings to safety what they held. False where the
    // connections can't be used as they were.
    bool look();
    // Whether commits are refused, or their outcome unknown, for a reason that stands in the log already.
    bool isInTrouble() const { return databaseGone_ || state_ != State::Sound; }
    // Opens a database anew that waits for it, when it is time.
    void retry();
    // When retry() has something to do next.
    Clock::time_point nextDeadline() const;
    // Tells of failures that were only counted so far.
    void flushLines() { failures_.flushAll(); }
    // Tables that may have changed without a commit that was answered as such.
    velta::NameList takeChanged();

private:
    enum class State {
        Sound,
        Endangered, // the log was displaced, and is not in the database yet
        Distrusted, // nobody knows what the disk holds, or the database could not be opened anew
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
    bool mixed_ = false;      // the log must not be read when the database is opened anew
    velta::NameList pending_; // touched by the commit that is under way
    velta::NameList unknown_; // touched by one whose outcome is not known before the database is opened anew
    velta::NameList changed_;
    log::Repeats failures_;
};

} // namespace store
