#include "cfg/notificationhandler.h"

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

} // namespace

NotificationHandler::NotificationHandler(const std::string& socketPath, EventDispatcher& dispatcher,
                                         const std::string& clientName, bool reconnect,
                                         unsigned answerTimeout, unsigned transactionWait, bool mergeChanges,
                                         bool leaveOutOwn)
    : dispatcher_(dispatcher),
      log_(clientName.c_str(), "notificationhandler"),
      connection_(socketPath, clientName, answerTimeout),
      client_(connection_, transactionWait, [this] { return beforeTransaction(); }),
      deliveries_(client_, mergeChanges, clientName),
      answerTimeout_(answerTimeout),
      reconnect_(reconnect),
      leaveOutOwn_(leaveOutOwn) {
    connection_.onClose([this](const EResultCode& why) {
        dispatcher_.remove(connection_.descriptor());
        client_.connectionLost();
        if (why.code() == code::timedOut)
            lastAttempt_ = timedOutAt_ = Clock::now(); // don't connect again at once
    });
    connection_.onLeftover([this] {
        if (deliveries_.mayWake())
            dispatcher_.wake();
    });
}

NotificationHandler::~NotificationHandler() {
    connection_.close();
    dispatcher_.remove(stopDescriptor_);
}

void NotificationHandler::stopOn(int descriptor) {
    connection_.stopOn(descriptor);
    dispatcher_.remove(stopDescriptor_);
    dispatcher_.add(descriptor, EventDispatcher::Readable, [](unsigned) {}); // it only ends the wait
    stopDescriptor_ = descriptor;
}

void NotificationHandler::registerConfigHandler(IConfigHandler* handler) {
    deliveries_.add(handler);
}

void NotificationHandler::initialize() {
    if (initialized_ || !connect().ok())
        return;
    initialized_ = true; // already now: a handler that loops until it has a transaction needs connectAgain()
    deliveries_.deliver();
    initialized_ = connection_.isOpen();
    if (initialized_)
        connection_.forgetComplaint();
}

void NotificationHandler::process() {
    client_.dropSnapshots();
    if (!initialized_)
        return;
    if (isWatched_)
        connection_.takeLeftover(); // the dispatcher's callback has received the rest
    else
        connection_.receive();
    if (!connection_.isOpen() && !connectAgain().ok())
        return;
    collectNotices();
    deliveries_.deliver();
    watch(deliveries_.mayWake());
}

// Without interest the dispatcher still reports a hang-up.
void NotificationHandler::watch(bool watched) {
    if (!connection_.isOpen() || watched == isWatched_)
        return;
    dispatcher_.setInterest(connection_.descriptor(), watched ? EventDispatcher::Readable : 0u);
    isWatched_ = watched;
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
    isWatched_ = true;
    deliveries_.everythingChanged();
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
        if (connection_.isStopping())
            return code::stopping;
        const EResultCode connected = isMute() ? EResultCode(code::notConnected) : connectAgain();
        if (!connected.ok())
            return connected;
    }
    return areRowsOutdated() ? EResultCode(code::outdated) : EResultCode();
}

// Otherwise a caller that keeps trying would wait for the whole time-out each time.
bool NotificationHandler::isMute() const {
    return timedOutAt_ && Clock::now() - *timedOutAt_ < answerTimeout_;
}

bool NotificationHandler::areRowsOutdated() const {
    return deliveries_.readingOfEverythingIsDue() && connectedAgainAt_ &&
           Clock::now() - *connectedAgainAt_ < outdatedPatience;
}

EResultCode NotificationHandler::subscribe() {
    Request request;
    request.kind = RequestKind::Subscribe;
    request.number = leaveOutOwn_ ? 1 : 0;
    request.names = deliveries_.tables();
    Reply reply;
    return connection_.exchange(request, reply);
}

void NotificationHandler::collectNotices() {
    for (const std::string& table : connection_.takeNotices())
        deliveries_.changed(table);
}

} // namespace orv::cfg
