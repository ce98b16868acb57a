#include "cfg/notificationhandler.h"

#include <algorithm>
#include <set>
#include <utility>

namespace orv::cfg {

using velta::net::EventDispatcher;
using velta::protocol::EResultCode;
using velta::protocol::Reply;
using velta::protocol::Request;
using velta::protocol::RequestKind;
namespace code = velta::protocol::code;

namespace {

constexpr std::chrono::milliseconds attemptInterval(100);
constexpr std::chrono::seconds outdatedPatience(1);
// A reading that failed is tried again in each of the next deliveries; one that failed so often has a lasting
// reason, a table that is not there, and rests for some deliveries after each try, so that it does not fill
// the log.
constexpr unsigned eagerTries = 10;
constexpr unsigned patientRest = 29;

const std::string allTables; // the table name of a reading of everything

} // namespace

NotificationHandler::NotificationHandler(const std::string& socketPath, EventDispatcher& dispatcher,
                                         const std::string& clientName, bool reconnect,
                                         unsigned answerTimeout, unsigned transactionWait, bool mergeChanges,
                                         bool leaveOutOwn)
    : dispatcher_(dispatcher),
      log_(clientName.c_str(), "notificationhandler"),
      connection_(socketPath, clientName, answerTimeout),
      client_(connection_, transactionWait, [this] { return beforeTransaction(); }),
      answerTimeout_(answerTimeout),
      reconnect_(reconnect),
      mergeChanges_(mergeChanges),
      leaveOutOwn_(leaveOutOwn) {
    connection_.onClose([this](const EResultCode& why) {
        dispatcher_.remove(connection_.descriptor());
        client_.connectionLost();
        if (why.code() == code::timedOut)
            lastAttempt_ = timedOutAt_ = Clock::now(); // not asked again in the same breath
    });
    connection_.onLeftover([this] { dispatcher_.wake(); });
}

NotificationHandler::~NotificationHandler() {
    connection_.close();
}

void NotificationHandler::registerConfigHandler(IConfigHandler* handler) {
    followers_.push_back(Follower{handler, {}});
}

void NotificationHandler::initialize() {
    if (initialized_ || !connect().ok())
        return;
    initialized_ = true; // a handler that stands in a loop until it has a transaction needs connectAgain()
    deliver();
    initialized_ = connection_.isOpen();
    if (initialized_)
        connection_.forgetComplaint();
}

void NotificationHandler::process() {
    client_.dropSnapshots();
    if (!initialized_)
        return;
    connection_.takeLeftover(); // the dispatcher tells of the rest
    if (!connection_.isOpen() && !connectAgain().ok())
        return;
    collectNotices();
    deliver();
}

EResultCode NotificationHandler::connect() {
    EResultCode result = connection_.open();
    if (!result.ok())
        return result;
    result = subscribe();
    if (!result.ok())
        return connection_.isOpen() ? connection_.giveUp(result) : result;
    dispatcher_.add(connection_.descriptor(), EventDispatcher::Readable,
                    [this](unsigned) { connection_.receive(); });
    readings_.clear();
    for (std::size_t follower = 0; follower < followers_.size(); ++follower)
        addReading(follower, allTables);
    return result;
}

EResultCode NotificationHandler::connectAgain() {
    if (!reconnect_ || !initialized_)
        return code::notConnected;
    if (lastAttempt_ && Clock::now() - *lastAttempt_ < attemptInterval)
        return code::notConnected;
    const EResultCode result = connect();
    lastAttempt_ = Clock::now();
    if (!result.ok())
        return result;
    timedOutAt_.reset();
    connectedAgainAt_ = lastAttempt_;
    connection_.forgetComplaint();
    log_.info("Connected to the configuration store again");
    return result;
}

EResultCode NotificationHandler::beforeTransaction() {
    if (!connection_.isOpen()) {
        const EResultCode connected = isMute() ? EResultCode(code::notConnected) : connectAgain();
        if (!connected.ok())
            return connected;
    }
    return areRowsOutdated() ? EResultCode(code::outdated) : EResultCode();
}

// A caller that goes on trying would wait out the whole time-out each time.
bool NotificationHandler::isMute() const {
    return timedOutAt_ && Clock::now() - *timedOutAt_ < answerTimeout_;
}

bool NotificationHandler::areRowsOutdated() const {
    const bool readingDue = std::any_of(readings_.begin(), readings_.end(),
                                        [](const Reading& reading) { return reading.table == allTables; });
    return readingDue && connectedAgainAt_ && Clock::now() - *connectedAgainAt_ < outdatedPatience;
}

EResultCode NotificationHandler::subscribe() {
    std::set<std::string> names;
    for (Follower& follower : followers_) {
        follower.tables.clear();
        follower.handler->getTables(follower.tables);
        names.insert(follower.tables.begin(), follower.tables.end());
    }
    Request request;
    request.kind = RequestKind::Subscribe;
    request.number = leaveOutOwn_ ? 1 : 0;
    request.names.assign(names.begin(), names.end());
    Reply reply;
    return connection_.exchange(request, reply);
}

void NotificationHandler::collectNotices() {
    for (const std::string& table : connection_.takeNotices())
        for (std::size_t i = 0; i < followers_.size(); ++i) {
            const std::list<std::string>& tables = followers_[i].tables;
            if (std::find(tables.begin(), tables.end(), table) != tables.end())
                addReading(i, table);
        }
}

void NotificationHandler::addReading(std::size_t follower, const std::string& table) {
    Reading* const due = findReading(follower, table);
    if (due != nullptr)
        due->rest = 0; // what changed may be what it failed for
    if (due == nullptr || !mergeChanges_)
        readings_.push_back(Reading{follower, table});
}

// A reading of everything is a reading of each table too.
NotificationHandler::Reading* NotificationHandler::findReading(std::size_t follower,
                                                               const std::string& table) {
    const auto found = std::find_if(readings_.begin(), readings_.end(), [&](const Reading& reading) {
        return reading.follower == follower && (reading.table == table || reading.table == allTables);
    });
    return found != readings_.end() ? &*found : nullptr;
}

void NotificationHandler::deliver() {
    for (Follower& follower : followers_)
        follower.readingFailed = false;
    for (Reading& reading : std::exchange(readings_, {})) {
        if (reading.rest > 0) {
            --reading.rest;
            tryLater(reading);
        } else {
            read(reading);
        }
    }
    for (Follower& follower : followers_)
        if (follower.actionDue && !follower.readingFailed)
            act(follower);
}

void NotificationHandler::read(Reading& reading) {
    Follower& follower = followers_[reading.follower];
    const unsigned failuresBefore = client_.failures();
    const bool answer = follower.handler->configChanged(client_, reading.table);
    log_.debug("configChanged(\"%s\") of handler %zu returned %s", reading.table.c_str(), reading.follower,
               answer ? "true" : "false");
    follower.actionDue = true;
    if (client_.failures() == failuresBefore)
        return;
    ++reading.failures;
    reading.rest = reading.failures < eagerTries ? 0 : patientRest;
    tryLater(reading);
}

void NotificationHandler::tryLater(const Reading& reading) {
    followers_[reading.follower].readingFailed = true;
    if (findReading(reading.follower, reading.table) == nullptr)
        readings_.push_back(reading);
}

void NotificationHandler::act(Follower& follower) {
    const unsigned failuresBefore = client_.failures();
    follower.handler->process(client_);
    follower.actionDue = client_.failures() != failuresBefore;
}

} // namespace orv::cfg
