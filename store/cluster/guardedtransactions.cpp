#include "store/cluster/guardedtransactions.h"

#include "store/cluster/jsonaccess.h"
#include "store/log.h"
#include "store/storage/cells.h"

#include <algorithm>
#include <utility>

namespace store {

namespace {

constexpr auto pauseBetweenAttempts = std::chrono::milliseconds(200);
constexpr auto answerTime = std::chrono::seconds(5); // of a reading or a fence

Json commitDurably() {
    return {{"op", "commit"}, {"durable", true}};
}

bool isConstraintViolation(const Json& result) {
    return textAt(result, "error") == "constraint violation";
}

// Further ones can be counted from it.
bool isToken(std::int64_t number) {
    constexpr std::int64_t most = std::int64_t{1} << 62;
    return number >= 0 && number <= most;
}

} // namespace

GuardedTransactions::GuardedTransactions(std::string device, Now now)
    : device_(std::move(device)), now_(std::move(now)) {}

void GuardedTransactions::connected(Transact transact) {
    transact_ = std::move(transact);
    step_ = Step::Unfenced;
    token_.reset();
    retryAt_.reset();
    wasRegistered_ = false;
    goOn();
}

void GuardedTransactions::disconnected() {
    transact_ = nullptr;
    step_ = Step::Offline;
    retryAt_.reset();
    answerBy_.reset();
    ++attempt_;
}

void GuardedTransactions::deviceSeen(std::int64_t token, std::int64_t done) {
    doneSeen_ = done;
    if (step_ == Step::Unfenced && !token_ && isToken(token))
        token_ = token;
}

void GuardedTransactions::run(Json operations, Clock::time_point until, Done done) {
    queue_.push_back({std::move(operations), until, std::move(done)});
    goOn();
}

void GuardedTransactions::settle() {
    const Clock::time_point now = now_();
    while (!queue_.empty() && queue_.front().until <= now)
        giveUpFirst();
    for (std::size_t i = 1; i < queue_.size();) {
        if (queue_[i].until > now) {
            ++i;
            continue;
        }
        const Done done = std::move(queue_[i].done);
        queue_.erase(queue_.begin() + static_cast<std::ptrdiff_t>(i));
        done({Outcome::NotApplied, 0, 0, {}});
    }
    if (answerBy_ && *answerBy_ <= now)
        giveUpAnswer();
    if (retryAt_ && *retryAt_ <= now) {
        retryAt_.reset();
        goOn();
    }
}

GuardedTransactions::Clock::time_point GuardedTransactions::nextDeadline() const {
    Clock::time_point next =
        std::min(retryAt_.value_or(Clock::time_point::max()), answerBy_.value_or(Clock::time_point::max()));
    for (const Job& job : queue_)
        next = std::min(next, job.until);
    return next;
}

void GuardedTransactions::goOn() {
    if (retryAt_ || (queue_.empty() && !doubt_))
        return;
    switch (step_) {
    case Step::Unfenced:
        token_ && !doubt_ ? fence() : read(); // `Done` tells of one in doubt
        return;
    case Step::Ready:
        if (!queue_.empty())
            send();
        return;
    case Step::Offline:
    case Step::Reading:
    case Step::Registering:
    case Step::Fencing:
    case Step::Sending:
        return;
    }
}

// It writes as well: a transaction that only reads is answered by the member alone, which may be behind.
void GuardedTransactions::read() {
    step_ = Step::Reading;
    transact_(
        {{{"op", "mutate"}, {"table", "Devices"}, {"where", ofDevice()}, {"mutations", {{"Probe", "+=", 1}}}},
         {{"op", "select"},
          {"table", "Devices"},
          {"where", ofDevice()},
          {"columns", {"_uuid", "Token", "Done"}}},
         commitDurably()},
        guarded(&GuardedTransactions::onRead));
}

void GuardedTransactions::onRead(const Json& result, const Json&) {
    if (!result.is_array() || result.size() < 2 || firstError(result))
        return retryLater();
    const Json* const rows = arrayAt(result[1], "rows");
    if (rows == nullptr)
        return retryLater();
    if (rows->empty()) // not at wire speed, if the row goes as soon as it has come
        return std::exchange(wasRegistered_, false) ? retryLater() : registerDevice();
    const std::optional<std::int64_t> token = integerAt((*rows)[0], "Token");
    const std::optional<std::int64_t> done = integerAt((*rows)[0], "Done");
    if (!token || !isToken(*token) || !done)
        return retryLater();
    token_ = token;
    if (doubt_ && *done == doubt_->token)
        clearDoubt(true);
    fence();
}

void GuardedTransactions::registerDevice() {
    step_ = Step::Registering;
    transact_({{{"op", "insert"}, {"table", "Devices"}, {"row", {{"Name", device_}}}}, commitDurably()},
              guarded(&GuardedTransactions::onRegistered));
}

void GuardedTransactions::onRegistered(const Json& result, const Json&) {
    if (!result.is_array())
        return retryLater();
    if (const std::optional<std::size_t> failed = firstError(result)) {
        noteRefusal(result[*failed]);
        return retryLater();
    }
    wasRegistered_ = true;
    read();
}

// Once for each reason.
void GuardedTransactions::noteRefusal(const Json& error) {
    if (isConstraintViolation(error)) // an attempt whose answer was lost has made the row
        return;
    std::string reason = shown(textAt(error, "error") + ": " + textAt(error, "details"));
    if (reason == refusal_)
        return;
    refusal_ = std::move(reason);
    log::warning("the cluster refuses to register this device, its shared tables can't be changed here: " +
                 refusal_);
}

void GuardedTransactions::fence() {
    step_ = Step::Fencing;
    Json operations = guard(*token_);
    operations.push_back(
        {{"op", "update"}, {"table", "Devices"}, {"where", ofDevice()}, {"row", {{"Token", *token_ + 1}}}});
    operations.push_back(commitDurably());
    transact_(std::move(operations), guarded(&GuardedTransactions::onFenced));
}

void GuardedTransactions::onFenced(const Json& result, const Json&) {
    if (!result.is_array())
        return retryLater();
    if (const std::optional<std::size_t> failed = firstError(result)) {
        if (*failed != 0)
            return retryLater();
        return becomeUnsure(); // the token is not what it was: it is read
    }
    ++*token_;
    step_ = Step::Ready;
    if (doubt_)
        clearDoubt(false);
    goOn();
}

void GuardedTransactions::send() {
    step_ = Step::Sending;
    const std::int64_t token = *token_ + 1;
    Json operations = guard(*token_);
    operations.push_back({{"op", "update"},
                          {"table", "Devices"},
                          {"where", ofDevice()},
                          {"row", {{"Token", token}, {"Done", token}}}});
    for (const Json& operation : queue_.front().operations)
        operations.push_back(operation);
    operations.push_back(commitDurably());
    doubt_ = Doubt{token, true};
    transact_(std::move(operations), guarded(&GuardedTransactions::onSent));
}

void GuardedTransactions::onSent(const Json& result, const Json&) {
    if (!result.is_array())
        return becomeUnsure();
    const std::optional<std::size_t> failed = firstError(result);
    if (!failed) {
        token_ = doubt_->token;
        step_ = Step::Ready;
        clearDoubt(true);
        return goOn();
    }
    const std::size_t own = queue_.front().operations.size();
    const std::size_t last = guardOperations + own; // "commit", and what is said of the whole
    // The guard itself, or a trouble of the cluster's: it may have been applied before it was run again.
    if (*failed < guardOperations || (*failed >= last && !isConstraintViolation(result[*failed])))
        return becomeUnsure();
    step_ = Step::Ready;
    doubt_.reset();
    finish(
        {Outcome::Refused, 0, std::min(*failed - guardOperations, own), textAt(result[*failed], "details")});
    goOn();
}

// The token is read again, and what became of a transaction that was sent.
void GuardedTransactions::becomeUnsure() {
    step_ = Step::Unfenced;
    token_.reset();
    retryLater();
}

void GuardedTransactions::retryLater() {
    step_ = Step::Unfenced;
    retryAt_ = now_() + pauseBetweenAttempts;
}

// What is first in the queue and was not applied will be sent again.
void GuardedTransactions::clearDoubt(bool applied) {
    const Doubt doubt = *doubt_;
    doubt_.reset();
    if (!doubt.isWaitedFor)
        log::info(
            std::string("the change with an unknown outcome ") +
            (applied ? "was applied by the cluster" : "was not applied by the cluster, and never will be"));
    else if (applied)
        finish({Outcome::Applied, doubt.token, 0, {}});
}

// A member may lose a transaction while the others elect a leader, and a relay while it has none. The reading
// or the fence can be made again, whether it will be applied late or not.
void GuardedTransactions::giveUpAnswer() {
    ++attempt_; // an answer to it would be too late
    answerBy_.reset();
    becomeUnsure();
}

void GuardedTransactions::finish(const Report& report) {
    const Done done = std::move(queue_.front().done);
    queue_.pop_front();
    done(report);
}

void GuardedTransactions::giveUpFirst() {
    if (!isInDoubt())
        return finish({Outcome::NotApplied, 0, 0, {}});
    if (step_ == Step::Sending) {
        ++attempt_; // an answer to it would be too late
        becomeUnsure();
    }
    if (doneSeen_ == doubt_->token) // only the answer is missing
        return clearDoubt(true);
    doubt_->isWaitedFor = false;
    finish({Outcome::Unknown, 0, 0, {}});
}

GuardedTransactions::Answer GuardedTransactions::guarded(void (GuardedTransactions::*then)(const Json&,
                                                                                           const Json&)) {
    if (step_ != Step::Sending) // which has the time of what is sent
        answerBy_ = now_() + answerTime;
    return [this, then, attempt = ++attempt_](const Json& result, const Json& error) {
        if (attempt != attempt_)
            return;
        answerBy_.reset();
        (this->*then)(result, error);
    };
}

Json GuardedTransactions::guard(std::int64_t token) const {
    return Json::array({{{"op", "wait"},
                         {"table", "Devices"},
                         {"where", ofDevice()},
                         {"columns", {"Token"}},
                         {"until", "=="},
                         {"rows", Json::array({{{"Token", token}}})},
                         {"timeout", 0}}});
}

Json GuardedTransactions::ofDevice() const {
    return Json::array({Json::array({"Name", "==", device_})});
}

} // namespace store
