#include "store/cluster/cluster.h"

#include "store/cluster/devicename.h"
#include "store/log.h"
#include "store/storage/cells.h"
#include "store/storage/sqlite.h"

#include <algorithm>
#include <utility>

namespace store {

namespace code = velta::protocol::code;
using Result = Sharing::Result;

namespace {

constexpr std::size_t mostRefusedLines = 10; // of one transaction of the cluster
constexpr std::size_t mostRefusedRows = 100; // that are named before all is well again
// Updates wait while a transaction is open here, at most 10 s. A member that sends more than this in that
// time, in bytes of memory, is left, and everything is read again. One message alone may hold more: the
// connection bounds it, and all that there is comes in one.
constexpr std::size_t mostBatched = 10'000'000;
constexpr std::size_t batchedPiece =
    500; // of these bytes: what a row takes besides its texts, or a transaction
constexpr auto applyingTime = std::chrono::milliseconds(50); // at once
constexpr std::size_t mostOfAChange = 4'000'000;             // bytes of JSON
constexpr std::size_t ofTheGuard = 100'000; // more than is added to it, and what else may be unsent
static_assert(mostOfAChange + ofTheGuard < RpcConnection::Limits().unsent, "a change can be sent");
constexpr std::size_t mostUnheld = 1000;
// So many conflicts in a row that no update of the cluster explains.
constexpr unsigned mostConflicts = 2;
constexpr auto betweenReadings = std::chrono::minutes(1);

SharedRows::Memory remember(Database& database) {
    SharedRows::Memory memory;
    if (const Result result = database.sharedRows().begin(newDeviceName(), memory); !result.ok())
        throw StorageError("can't remember the cluster: " + result.strerror());
    return memory;
}

// About what it takes of memory, in bytes.
std::size_t weightOf(const ClusterNews& news) {
    std::size_t weight = (news.rows.size() + news.refused.size() + 1) * batchedPiece;
    for (const SharedUpdate& row : news.rows)
        if (row.values)
            for (const std::optional<velta::Value>& cell : row.values->cells)
                weight += cell ? cell->getText().size() : 0;
    return weight;
}

bool isWhole(const SharedUpdate& update) {
    return !update.values || std::all_of(update.values->cells.begin(), update.values->cells.end(),
                                         [](const auto& cell) { return cell.has_value(); });
}

Result checkSize(const Json& operations) {
    if (operations.dump().size() <= mostOfAChange)
        return {};
    return {code::tooLarge,
            "a change of what is shared takes at most " + std::to_string(mostOfAChange) + " bytes"};
}

std::string lineOf(const Schema& schema, const SharedRows::Refusal& refusal) {
    const Table& table = schema.tables()[refusal.update.table];
    const auto& values = refusal.update.values;
    const std::string id = values && values->id ? '.' + std::to_string(*values->id) : std::string();
    return table.name + id + ": " + refusal.reason;
}

} // namespace

Cluster::Cluster(velta::net::EventDispatcher& dispatcher, Database& database, std::vector<Remote> remotes,
                 Times times)
    : database_(database),
      times_(std::move(times)),
      memory_(remember(database)),
      timesOpened_(database.timesOpened()),
      guarded_(memory_.device, times_.pace.now),
      follower_(dispatcher, std::move(remotes), database.schema(),
                monitorRequests(database.schema(), memory_.device),
                {[this] { return memory_.position; },
                 [this](Follower::News news) { return onNews(std::move(news)); },
                 [this](bool ready) { onReady(ready); }},
                times_.pace),
      reservations_(database.schema(), memory_.device, guarded_, transact(), times_.pace.now) {}

Result Cluster::commit(SharedChange change, Committed done) {
    if (!follower_.isReady())
        return code::clusterUnreachable;
    nameUnheld(change);
    SharedOperations operations;
    if (Result result = appendChange(database_.schema(), change, unheld_, operations); !result.ok())
        return result;
    addReservations(change, operations);
    if (Result result = checkSize(operations.list); !result.ok())
        return result;
    Json list = std::exchange(operations.list, {});
    guarded_.run(std::move(list), now() + times_.commit,
                 [this, operations = std::move(operations), change = std::move(change),
                  done = std::move(done)](const GuardedTransactions::Report& report) {
                     onCommitted(report, operations, change, done);
                 });
    return {};
}

// A single row that was refused from the first has no name here. What is changed here is to replace it.
void Cluster::nameUnheld(SharedChange& change) const {
    for (SharedChange::Row& row : change.rows)
        for (const auto& [name, table] : unheld_)
            if (table == row.row.table && database_.schema().tables()[table].singleRow())
                row.row.uuid = name;
}

void Cluster::addReservations(const SharedChange& change, SharedOperations& operations) const {
    const Table* const tables = database_.schema().tables().data();
    for (const SharedChange::Row& row : change.rows) {
        const std::size_t table = row.row.table;
        if (!row.isNew || tables[table].singleRow())
            continue;
        const std::string name = tables[table].name + '.' + std::to_string(row.row.id);
        const bool isOurs = reservations_.holds(table, row.row.id);
        operations.add(reservations_.waitForFreedom(table, row.row.id),
                       isOurs ? Result(code::conflict, name + " is reserved for this device no longer")
                              : Result(code::duplicateId, name + " is promised to another device"));
        if (isOurs)
            operations.add(reservations_.removal(table, row.row.id), {code::conflict, name});
    }
}

void Cluster::onCommitted(const GuardedTransactions::Report& report, const SharedOperations& operations,
                          const SharedChange& change, const Committed& done) {
    switch (report.outcome) {
    case GuardedTransactions::Outcome::Applied:
        for (const SharedChange::Row& row : change.rows)
            if (row.isNew)
                reservations_.used(row.row.table, row.row.id);
        accepted_.push_back({report.token, now() + times_.applying, done});
        return finishAccepted(appliedDone_);
    case GuardedTransactions::Outcome::Refused:
        meetStrangers(change);
        noteConflict(operations.failed(report.failed));
        return done(operations.failed(report.failed));
    case GuardedTransactions::Outcome::NotApplied:
        return done(code::clusterUnreachable);
    case GuardedTransactions::Outcome::Unknown:
        return done({code::outcomeUnknown, "the cluster does not answer, and may apply the change later"});
    }
}

// The member tells what others have changed before it refuses. A conflict that nothing explains comes from a
// row that differs here, because another program has written to the file.
void Cluster::noteConflict(const Result& result) {
    if (result.code() != code::conflict || !batches_.empty() || ++conflicts_ < mostConflicts)
        return;
    if (readAllAt_ && now() < *readAllAt_ + betweenReadings)
        return;
    readAllAt_ = now();
    wantsAll_ = true;
}

// A row with an Id of its own is refused while another device has reserved that. If the device is dead,
// nobody else might ever free it.
void Cluster::meetStrangers(const SharedChange& change) {
    for (const SharedChange::Row& row : change.rows)
        if (row.isNew)
            return reservations_.meetStrangers(row.row.table);
}

Result Cluster::reserve(std::size_t table, Reserved done) {
    if (!follower_.isReady())
        return code::clusterUnreachable;
    reservations_.reserve(table, now() + times_.commit, std::move(done));
    return {};
}

void Cluster::giveBack(std::size_t table, std::uint32_t id) {
    reservations_.giveBack(table, id);
}

void Cluster::leave(Committed done) {
    Json operations =
        Json::array({removeFrom("Reserved", Json::array({Json::array({"Device", "==", memory_.device})})),
                     removeFrom("Devices", Json::array({Json::array({"Name", "==", memory_.device})}))});
    guarded_.run(std::move(operations), now() + times_.commit,
                 [done = std::move(done)](const GuardedTransactions::Report& report) {
                     const bool isDone = report.outcome == GuardedTransactions::Outcome::Applied;
                     done(isDone ? Result() : Result(code::clusterUnreachable));
                 });
}

bool Cluster::hasUpdates() const {
    return !batches_.empty() && mayUseStorage();
}

// Not again at once after it has failed.
bool Cluster::mayUseStorage() const {
    return !applyAgainAt_ || *applyAgainAt_ <= now();
}

// Each transaction is a commit with its wait for the disk. When many have come, clients get their turns
// between.
velta::NameList Cluster::apply() {
    velta::NameList changed;
    const Clock::time_point end = now() + applyingTime;
    while (hasUpdates() && applyFirst(changed) && now() < end) {
    }
    return changed;
}

// False if it has to be tried again later.
bool Cluster::applyFirst(velta::NameList& changed) {
    const Batch& batch = batches_.front();
    SharedRows::Applied applied;
    if (const Result result = database_.sharedRows().apply(batch.updates, applied); !result.ok()) {
        onStorageFailed(result);
        return false;
    }
    applyAgainAt_.reset();
    isStorageFailing_ = false;
    if (applied.isIncomplete) {
        readAll("a row changed that is not known here, everything is read again");
        return false;
    }
    conflicts_ = 0;
    noteUnheld(batch, applied.refused);
    memory_.position = batch.updates.position;
    const std::optional<std::int64_t> done = batch.done;
    const bool isFirst = batch.isFirst;
    batched_ -= batch.weight;
    batches_.pop_front();
    std::vector<std::string> lines;
    for (const SharedRows::Refusal& refusal : applied.refused)
        lines.push_back(lineOf(database_.schema(), refusal));
    tellRefused(lines);
    if (!lines.empty())
        becomePartial();
    else if (!isPartial_)
        refused_.clear();
    for (const std::string& table : applied.changed)
        if (std::find(changed.begin(), changed.end(), table) == changed.end())
            changed.push_back(table);
    if (isFirst)
        follower_.caughtUp();
    if (done)
        finishAccepted(*done);
    return true;
}

// Rows were refused: after the next connect, when the schema may be another one, everything is read again.
void Cluster::becomePartial() {
    isPartial_ = true;
    memory_.position.lastTransaction.clear();
    for (Batch& batch : batches_)
        batch.updates.position.lastTransaction.clear();
}

// Which rows this device does not hold as the cluster does. One of which a part has changed may be whole
// again: it is asked for.
void Cluster::noteUnheld(const Batch& batch, const std::vector<SharedRows::Refusal>& refused) {
    if (batch.updates.complete)
        unheld_.clear();
    for (const SharedUpdate& row : batch.updates.rows) {
        if (isWhole(row))
            unheld_.erase(row.uuid);
        else if (unheld_.count(row.uuid) != 0)
            wantsAll_ = true;
    }
    UnheldRows rows = batch.unheld;
    for (const SharedRows::Refusal& refusal : refused)
        rows.emplace(refusal.update.uuid, refusal.update.table);
    for (const auto& row : rows)
        if (unheld_.size() < mostUnheld)
            unheld_.insert(row);
}

// For a row that changed and was refused before, or that somebody removed here, say.
void Cluster::readAll(const std::string& reason) {
    wantsAll_ = false;
    memory_.position.lastTransaction.clear();
    forgetBatches();
    follower_.leave(reason);
}

void Cluster::forgetBatches() {
    batches_.clear();
    batched_ = 0;
}

// The database was opened anew, and may be another one, or have lost its last commits.
void Cluster::recall() {
    if (const Result result = database_.sharedRows().begin(memory_.device, memory_); !result.ok()) {
        onStorageFailed(result);
        return;
    }
    timesOpened_ = database_.timesOpened();
    forgetBatches();
    isBackedUp_ = false;
    follower_.leave("the database was opened anew");
}

void Cluster::onStorageFailed(const Result& result) {
    applyAgainAt_ = now() + times_.applyAgain;
    if (!std::exchange(isStorageFailing_, true))
        log::error("what the cluster holds can't be applied, it is tried again: " + result.strerror());
}

// Each once, however often it comes, until all rows could be applied again.
void Cluster::tellRefused(const std::vector<std::string>& lines) {
    std::size_t named = 0;
    std::size_t further = 0;
    for (const std::string& line : lines) {
        if (refused_.size() >= mostRefusedRows || !refused_.insert(line).second)
            continue;
        if (++named <= mostRefusedLines)
            log::warning("a row of the cluster is not applied: " + line);
        else
            ++further;
    }
    if (further > 0)
        log::warning(std::to_string(further) + " further rows of the cluster are not applied");
}

void Cluster::finishAccepted(std::int64_t applied) {
    appliedDone_ = applied;
    while (!accepted_.empty() && accepted_.front().token <= appliedDone_) {
        const Committed done = std::move(accepted_.front().done);
        accepted_.pop_front();
        done({});
    }
    if (late_ && *late_ <= appliedDone_) {
        late_.reset();
        log::info("the change with an unknown outcome is in force here");
    }
}

void Cluster::settle(Clock::time_point now) {
    if (timesOpened_ != database_.timesOpened() && mayUseStorage())
        recall();
    follower_.settle();
    guarded_.settle();
    reservations_.settle(follower_.isReady());
    if (wantsAll_ && follower_.isFollowing() && batches_.empty())
        readAll("a row may differ here, everything is read again");
    if (seedingUntil_ && *seedingUntil_ <= now) {
        seedingUntil_.reset();
        if (follower_.isFollowing())
            follower_.leave("it does not take the rows of this device" + seedRefusal_);
    }
    expireAccepted(now);
}

void Cluster::expireAccepted(Clock::time_point now) {
    while (!accepted_.empty() && accepted_.front().until <= now) {
        const Committed done = std::move(accepted_.front().done);
        late_ = accepted_.front().token;
        accepted_.pop_front();
        done({code::outcomeUnknown, "the cluster has taken the change, it could not be applied here yet"});
    }
}

Sharing::Clock::time_point Cluster::nextDeadline() const {
    Clock::time_point next =
        std::min({follower_.nextDeadline(), guarded_.nextDeadline(), reservations_.nextDeadline()});
    next = std::min(next, seedingUntil_.value_or(next));
    if (!mayUseStorage()) // once that is over, the end of an open transaction is waited for
        next = std::min(next, *applyAgainAt_);
    return accepted_.empty() ? next : std::min(next, accepted_.front().until);
}

std::string Cluster::onNews(Follower::News news) {
    ClusterNews read;
    if (std::string complaint = readNews(database_.schema(), news.tables, read); !complaint.empty())
        return complaint;
    noteDevice(read);
    if (news.isFirst) {
        forgetBatches();
        if (std::string complaint = onFirstNews(news, read); !complaint.empty())
            return complaint;
    }
    if (cluster_.empty() && read.seed) { // the first rows have arrived
        if (std::string complaint = onSeeded(*read.seed); !complaint.empty())
            return complaint;
        news.complete = news.isFirst = true;
    }
    return cluster_.empty() ? std::string() : addBatch(news, std::move(read));
}

// What the member holds at the beginning: of which cluster it is, and whether it is an empty one.
std::string Cluster::onFirstNews(Follower::News& news, const ClusterNews& read) {
    const std::string& known = memory_.position.cluster;
    adopts_ = false;
    seedingUntil_.reset();
    cluster_.clear();
    if (!news.complete) {
        if (memory_.position.lastTransaction.empty())
            return "it does not tell all that it holds";
        cluster_ = known;
        return {};
    }
    if (read.seed)
        return {};
    if (!known.empty())
        return "it holds an empty cluster, this device follows another one";
    return seed();
}

std::string Cluster::onSeeded(const ClusterNews::Seed& seed) {
    const std::string& known = memory_.position.cluster;
    if (!known.empty() && seed.uuid != known)
        return "it is of another cluster than the one that this device follows; start the store once without "
               "a cluster to forget that one";
    seedingUntil_.reset();
    adopts_ = known.empty() && seed.by == memory_.device;
    if (known.empty() && !adopts_ && !isBackedUp_) {
        std::string path;
        if (const Result result = database_.sharedRows().backUp(path); !result.ok())
            return "the tables of this device can't be backed up before: " + result.strerror();
        if (!path.empty())
            log::info("the tables as they were before the cluster are kept in " + path);
        isBackedUp_ = true;
    }
    cluster_ = seed.uuid;
    return {};
}

// The first device fills the cluster with what it has. Whether it or another one was faster is told by the
// rows that come.
std::string Cluster::seed() {
    std::vector<SharedRow> rows;
    if (const Result result = database_.sharedRows().all(rows); !result.ok())
        return "the tables of this device can't be read: " + result.strerror();
    SharedOperations operations;
    if (const Result result = appendSeed(database_.schema(), rows, memory_.device, operations); !result.ok())
        return "it is empty, and can't hold what this device has: " + result.strerror();
    operations.add({{"op", "commit"}, {"durable", true}}, code::failure);
    if (const Result result = checkSize(operations.list); !result.ok())
        return "it is empty, and can't hold what this device has: " + result.strerror();
    seedingUntil_ = now() + times_.seeding;
    seedRefusal_.clear();
    follower_.transact(std::move(operations.list),
                       [this](const Json& result, const Json& error) { noteSeed(result, error); });
    return {};
}

void Cluster::noteSeed(const Json& result, const Json& error) {
    const std::optional<std::size_t> failed = firstError(result);
    const Json& reason = failed ? result[*failed] : error;
    if (const std::string kind = textAt(reason, "error"); !kind.empty())
        seedRefusal_ = ": " + shown(kind + ": " + textAt(reason, "details"));
}

void Cluster::noteDevice(const ClusterNews& read) {
    token_ = read.token.value_or(token_);
    done_ = read.done.value_or(done_);
    if (read.token || read.done)
        guarded_.deviceSeen(token_, done_);
}

std::string Cluster::addBatch(const Follower::News& news, ClusterNews&& read) {
    Batch batch;
    batch.weight = weightOf(read);
    batched_ += batch.weight;
    if (!batches_.empty() && batched_ > mostBatched)
        return "it sends more than can be applied";
    std::vector<std::string> lines;
    for (ClusterNews::Refusal& refusal : read.refused) {
        lines.push_back(std::move(refusal.reason));
        batch.unheld.emplace(refusal.uuid, refusal.table);
        batch.updates.refused.push_back(std::move(refusal.uuid));
    }
    tellRefused(lines);
    isPartial_ = !read.refused.empty() || (isPartial_ && !news.complete);
    batch.updates.rows = std::move(read.rows);
    batch.updates.complete = news.complete;
    batch.updates.adopt = news.complete && adopts_;
    batch.updates.position = {cluster_, isPartial_ ? std::string() : news.transaction,
                              std::max(news.index, memory_.position.index)};
    batch.done = read.done;
    batch.isFirst = news.isFirst;
    batches_.push_back(std::move(batch));
    return {};
}

void Cluster::onReady(bool ready) {
    if (ready)
        return guarded_.connected(transact());
    guarded_.disconnected();
    reservations_.disconnected();
}

GuardedTransactions::Transact Cluster::transact() {
    return [this](Json operations, GuardedTransactions::Answer answer) {
        follower_.transact(std::move(operations), std::move(answer));
    };
}

} // namespace store
