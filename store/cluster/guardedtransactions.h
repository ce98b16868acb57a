#pragma once

#include "store/cluster/jsonaccess.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>

namespace store {

// This device's transactions in the cluster, one after the other, each applied once or not at all.
//
// A cluster may apply a transaction whose sender got no answer, may do so seconds later, and may run one
// again that it had applied already. So each transaction is guarded by a token, a number in the device's row
// of the table Devices: it waits for the token of the one before, and sets its own. What became of one whose
// answer is missing is found out by a fence: a transaction that moves the token alone. After it the older one
// can never be applied any more, and `Done` in the row tells whether it was.
//
// The first transaction of a connection is preceded by a fence as well: this device may have been killed with
// one under way.
class GuardedTransactions {
public:
    using Clock = std::chrono::steady_clock;
    using Now = std::function<Clock::time_point()>;

    enum class Outcome {
        Applied,
        Refused,    // by one of its own operations: nothing of it is applied
        NotApplied, // and never will be
        Unknown
    };
    struct Report {
        Outcome outcome = Outcome::Unknown;
        std::int64_t token = 0; // of an applied one: what Devices.Done was set to
        // Refused: the index of the operation that failed. It is the number of operations if all succeeded
        // and the whole was refused, for an index that would not be unique any more.
        std::size_t failed = 0;
        std::string error; // of a refused one, the member's words
    };
    using Done = std::function<void(const Report&)>;

    using Answer = std::function<void(const Json& result, const Json& error)>;
    // Sends operations to the cluster. The answer comes later, or never when the connection is lost.
    using Transact = std::function<void(Json operations, Answer answer)>;

    GuardedTransactions(std::string device, Now now);

    // From now on transactions can be sent.
    void connected(Transact transact);
    void disconnected();
    // The member told what the device's row holds.
    void deviceSeen(std::int64_t token, std::int64_t done);

    // `operations` is an array. `done` is called later, no later than with the settle() at `until`.
    void run(Json operations, Clock::time_point until, Done done);

    void settle();
    Clock::time_point nextDeadline() const;

private:
    static constexpr std::size_t guardOperations = 2; // before a transaction's own: the wait, the token

    enum class Step {
        Offline,
        Unfenced, // an older transaction may still be applied
        Reading,  // the token
        Registering,
        Fencing,
        Ready,
        Sending
    };
    struct Job {
        Json operations;
        Clock::time_point until;
        Done done;
    };
    // A transaction that was sent and not answered.
    struct Doubt {
        std::int64_t token;
        bool isWaitedFor; // it is the first in the queue; else it was given up
    };

    void goOn();
    void read();
    void onRead(const Json& result, const Json& error);
    void registerDevice();
    void onRegistered(const Json& result, const Json& error);
    void noteRefusal(const Json& error);
    void fence();
    void onFenced(const Json& result, const Json& error);
    void send();
    void onSent(const Json& result, const Json& error);
    void retryLater();
    void becomeUnsure();
    void clearDoubt(bool applied);
    void finish(const Report& report);
    void giveUpFirst();
    void giveUpAnswer();
    bool isInDoubt() const { return doubt_ && doubt_->isWaitedFor; }
    Answer guarded(void (GuardedTransactions::*then)(const Json&, const Json&));
    Json guard(std::int64_t token) const;
    Json ofDevice() const;

    const std::string device_;
    const Now now_;
    Transact transact_;
    Step step_ = Step::Offline;
    std::uint64_t attempt_ = 0;         // answers to earlier ones are not heeded
    std::optional<std::int64_t> token_; // as the cluster holds it, as far as known
    std::optional<std::int64_t> doneSeen_;
    bool wasRegistered_ = false; // by what was sent last
    std::string refusal_;        // of the registration, as it was logged
    std::optional<Doubt> doubt_;
    std::deque<Job> queue_;
    std::optional<Clock::time_point> retryAt_;
    std::optional<Clock::time_point> answerBy_; // to what was sent in this step
};

} // namespace store
