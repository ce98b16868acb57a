#include "simulation/memorylink.h"

namespace orv::simulation {

using velta::protocol::EResultCode;
namespace code = velta::protocol::code;

namespace {

// For so long after the connection came back, whoever starts a transaction is told that the rows he knows are
// outdated, see NotificationHandler.
constexpr Machine::Microseconds outdatedPatience = Machine::second;

} // namespace

MemoryLink::MemoryLink(Machine& machine, Tables& tables)
    : machine_(machine), tables_(tables), deliveries_(tables) {
    tables_.onFault([this](Tables::Operation operation, const std::string& table) {
        EResultCode result = resultBeforeOperation(operation, table);
        if (onOperation_)
            onOperation_(operation, table, result);
        return result;
    });
}

MemoryLink::~MemoryLink() {
    tables_.onFault(nullptr);
}

bool MemoryLink::initialize() {
    if (!connect())
        return false;
    initialized_ = true; // a handler that stands in a loop until it has a transaction may connect again
    deliveries_.deliver();
    initialized_ = connected_;
    return connected_;
}

void MemoryLink::lose() {
    lostWhileWaiting_ = connected_;
    connected_ = false;
    tables_.disconnect();
}

void MemoryLink::wait(unsigned milliseconds) {
    const Machine::Microseconds end = machine_.passed() + Machine::Microseconds{milliseconds} * 1000;
    lostWhileWaiting_ = false;
    const auto noticed = [this] {
        return connected_ && deliveries_.mayWake() && tables_.hasNotices(subscribed_);
    };
    while (machine_.passed() < end && !lostWhileWaiting_ && !noticed())
        machine_.passUntilNextEvent(end);
}

void MemoryLink::deliver() {
    if (!connected_ && !connect())
        return;
    for (const std::string& table : tables_.takeNotices())
        if (subscribed_.count(table) != 0)
            deliveries_.changed(table);
    deliveries_.deliver();
}

bool MemoryLink::connect() {
    if (!reachable_)
        return false;
    connected_ = true;
    if (initialized_)
        connectedAgainAt_ = machine_.passed();
    (void)tables_.takeNotices(); // of what went on before there was a connection
    const velta::NameList followed = deliveries_.tables();
    subscribed_ = {followed.begin(), followed.end()};
    deliveries_.everythingChanged();
    return true;
}

EResultCode MemoryLink::resultBeforeOperation(Tables::Operation operation, const std::string& table) {
    if (operation == Tables::Operation::Start) {
        const EResultCode ready = beforeTransaction();
        if (!ready.ok())
            return ready;
    }
    if (!connected_)
        return code::notConnected;
    return fault_ ? fault_(operation, table) : EResultCode();
}

// Whoever starts a transaction may stand in a loop of his own: it brings the connection back.
EResultCode MemoryLink::beforeTransaction() {
    if (!connected_ && (!initialized_ || !connect()))
        return code::notConnected;
    return areRowsOutdated() ? EResultCode(code::outdated) : EResultCode();
}

bool MemoryLink::areRowsOutdated() const {
    return connectedAgainAt_ && deliveries_.readingOfEverythingIsDue() &&
           machine_.passed() - *connectedAgainAt_ < outdatedPatience;
}

} // namespace orv::simulation
