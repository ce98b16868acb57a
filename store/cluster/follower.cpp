#include "store/cluster/follower.h"

#include "store/log.h"
#include "store/storage/cells.h"

#include <algorithm>
#include <utility>

namespace store {

namespace {

constexpr const char* serverMonitor = "server";
constexpr const char* tablesMonitor = "tables";
// What a member takes for "no transaction known": it tells everything.
constexpr const char* noTransaction = "00000000-0000-0000-0000-000000000000";
constexpr auto forLong = std::chrono::minutes(1);
constexpr int followedByPause = 10; // at least, where a member was followed before
constexpr auto linesInterval = std::chrono::minutes(10);
constexpr unsigned mostLines = 20; // in that time
constexpr std::size_t mostComplaints = 100;

std::string reasonOf(const Json& error) {
    const std::string kind = error.is_string() ? error.get<std::string>() : textAt(error, "error");
    if (kind.empty())
        return "it answered with a malformed error";
    const std::string details = textAt(error, "details");
    return "it answered: " + shown(kind + (details.empty() ? "" : ", " + details));
}

} // namespace

Follower::Follower(velta::net::EventDispatcher& dispatcher, std::vector<Remote> remotes, const Schema& schema,
                   Json monitored, Events events, Pace pace)
    : remotes_(std::move(remotes)),
      schema_(schema),
      monitored_(std::move(monitored)),
      events_(std::move(events)),
      pace_(std::move(pace)),
      connection_(dispatcher,
                  {[this] { onOpened(); },
                   [this](const std::string& method, const Json& params) { onNotified(method, params); },
                   [this](const std::string& reason) { fail(reason); }}),
      at_(remotes_.size() - 1),
      until_(pace_.now()) {}

void Follower::transact(Json operations, RpcConnection::Answer answer) {
    Json params = Json::array({clusterDatabase});
    for (Json& operation : operations)
        params.push_back(std::move(operation));
    connection_.call("transact", params, std::move(answer));
}

void Follower::leave(const std::string& reason) {
    connection_.close();
    fail(reason);
}

void Follower::settle() {
    const Clock::time_point now = pace_.now();
    connection_.settle(now);
    if (step_ == Step::Following && !isBehind_)
        sayFollows();
    if (now < until_)
        return;
    switch (step_) {
    case Step::Pausing:
        return tryNext();
    case Step::AskingSchema:
    case Step::AskingServer:
    case Step::AskingTables:
        return leave("it does not tell what it holds");
    case Step::Connecting: // has a time-out of its own
    case Step::Following:
        return;
    }
}

Follower::Clock::time_point Follower::nextDeadline() const {
    const Clock::time_point next = connection_.nextDeadline();
    const bool isTimed = step_ != Step::Connecting && step_ != Step::Following;
    return isTimed ? std::min(next, until_) : next;
}

void Follower::tryNext() {
    at_ = (at_ + 1) % remotes_.size();
    ++tried_;
    step_ = Step::Connecting;
    connection_.open(remotes_[at_]);
}

void Follower::onOpened() {
    step_ = Step::AskingSchema;
    until_ = pace_.now() + pace_.answer;
    // A changed schema then cancels the monitor, and does not end the connection without a word.
    connection_.call("set_db_change_aware", Json::array({true}), [](const Json&, const Json&) {});
    connection_.call("get_schema", Json::array({clusterDatabase}), then(&Follower::onSchema));
}

void Follower::onSchema(const Json& result, const Json&) {
    if (const std::string complaint = complaintOfSchema(schema_, result); !complaint.empty())
        return leave(complaint);
    step_ = Step::AskingServer;
    connection_.call(
        "monitor_cond",
        Json::array({"_Server", serverMonitor,
                     Json{{"Database",
                           Json::array({Json{
                               {"columns", Json::array({"connected", "index"})},
                               {"where", Json::array({Json::array({"name", "==", clusterDatabase})})}}})}}}),
        then(&Follower::onServer));
}

void Follower::onServer(const Json& result, const Json&) {
    server_ = {};
    onServerChanged(result);
    if (step_ != Step::AskingServer)
        return;
    step_ = Step::AskingTables;
    const std::string last = events_.position().lastTransaction;
    connection_.call(
        "monitor_cond_since",
        Json::array({clusterDatabase, tablesMonitor, monitored_, last.empty() ? noTransaction : last}),
        then(&Follower::onTables));
}

void Follower::onTables(const Json& result, const Json&) {
    if (!result.is_array() || result.size() != 3 || !result[0].is_boolean() || !result[1].is_string() ||
        !result[2].is_object())
        return leave("a malformed answer");
    step_ = Step::Following;
    isBehind_ = true;
    tell({result[2], true, !result[0].get<bool>(), result[1].get<std::string>(), server_.index});
    if (step_ != Step::Following)
        return;
    since_ = pace_.now();
    showReady();
}

void Follower::caughtUp() {
    if (step_ != Step::Following)
        return;
    isBehind_ = false;
    complaints_.clear();
    saidFollows_ = false;
    sayFollows();
    showReady();
}

void Follower::onNotified(const std::string& method, const Json& params) {
    if (!params.is_array() || params.empty())
        return;
    if (method == "update2" && params.size() == 2 && params[0] == serverMonitor)
        onServerChanged(params[1]);
    else if (method == "update3" && params.size() == 3 && params[0] == tablesMonitor)
        onTablesChanged(params);
    else if (method == "monitor_canceled")
        leave("its schema was changed");
}

// One row, however it is told: as it was at first, as a new one, or what has changed of it.
void Follower::onServerChanged(const Json& tables) {
    const Json* const rows = objectAt(tables, "Database");
    if (rows != nullptr)
        for (const Json& row : *rows)
            for (const char* const kind : {"initial", "insert", "modify"})
                if (const Json* const cells = objectAt(row, kind))
                    takeServerRow(*cells);
    if (const std::string complaint = complaintOfServer(); !complaint.empty())
        return leave(complaint);
    showReady();
}

void Follower::takeServerRow(const Json& cells) {
    server_.connected = switchAt(cells, "connected").value_or(server_.connected);
    if (const std::optional<std::int64_t> index = integerAt(cells, "index"); index && *index >= 0)
        server_.index = static_cast<std::uint64_t>(*index);
}

// Why the member is not to be followed.
std::string Follower::complaintOfServer() const {
    if (!server_.connected && remotes_.size() > 1)
        return "it has lost the other members";
    const std::uint64_t known = events_.position().index;
    if (step_ == Step::AskingServer && server_.index != 0 && server_.index < known)
        return "it is behind, or of another cluster: it has come to " + std::to_string(server_.index) +
               ", this device knows " + std::to_string(known);
    return {};
}

void Follower::onTablesChanged(const Json& params) {
    if (step_ != Step::Following)
        return;
    if (!params[1].is_string() || !params[2].is_object())
        return leave("a malformed notice");
    tell({params[2], false, false, params[1].get<std::string>(), server_.index});
}

void Follower::tell(News news) {
    if (const std::string complaint = events_.news(std::move(news)); !complaint.empty())
        leave(complaint);
}

// The connection is gone.
void Follower::fail(const std::string& reason) {
    const Clock::time_point now = pace_.now();
    const std::optional<Clock::time_point> since = std::exchange(since_, std::nullopt);
    if (since && now - *since >= forLong) {
        pauses_ = 0;
        tried_ = 0;
    }
    complain(reason);
    step_ = Step::Pausing;
    showReady();
    if (tried_ >= remotes_.size()) {
        tried_ = 0;
        ++pauses_;
    }
    if (since)
        shortenPauses(now - *since);
    until_ = now + pauseNow();
}

// A network that fails now and then must not keep a device away for much longer than it fails itself.
void Follower::shortenPauses(Clock::duration followed) {
    while (pauses_ > 0 && wholePause() > followed / followedByPause)
        --pauses_;
}

// Once for each reason, however often it is tried.
void Follower::complain(const std::string& reason) {
    const std::string text = "the cluster can't be followed at " + remote() + ": " + reason;
    if (complaints_.count(text) != 0 || !mayLog())
        return;
    if (complaints_.size() >= mostComplaints) // it has something new to say each time
        complaints_.clear();
    complaints_.insert(text);
    log::warning(text);
}

void Follower::sayFollows() {
    if (saidFollows_ || !mayLog())
        return;
    saidFollows_ = true;
    log::info("follows the cluster at " + remote());
}

bool Follower::mayLog() {
    const Clock::time_point now = pace_.now();
    if (now >= linesUntil_) {
        linesUntil_ = now + linesInterval;
        lines_ = 0;
    }
    return lines_++ < mostLines;
}

// The next remote is tried nearly at once, all of them again after a pause.
Follower::Clock::duration Follower::pauseNow() const {
    const Clock::duration part = tried_ > 0 ? pace_.first : wholePause();
    return std::chrono::duration_cast<Clock::duration>(part * (0.5 + pace_.random() / 2));
}

Follower::Clock::duration Follower::wholePause() const {
    constexpr unsigned mostDoublings = 10;
    return std::min(pace_.longest, pace_.first * (1 << std::min(pauses_, mostDoublings)));
}

void Follower::showReady() {
    const bool ready = step_ == Step::Following && server_.connected && !isBehind_;
    if (ready == told_)
        return;
    told_ = ready;
    events_.ready(ready);
}

// An answer that is an error ends the connection.
RpcConnection::Answer Follower::then(void (Follower::*handler)(const Json&, const Json&)) {
    return [this, handler](const Json& result, const Json& error) {
        if (!error.is_null())
            leave(reasonOf(error));
        else
            (this->*handler)(result, error);
    };
}

} // namespace store
