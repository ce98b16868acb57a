#include "tools/cfgctl/watch.h"

#include "cfg/notificationhandler.h"
#include "tools/cells.h"
#include "tools/cfgctl/diff.h"
#include "tools/output.h"
#include "tools/storetables.h"
#include "tools/text.h"
#include "tools/timestamp.h"
#include "velta/net/eventdispatcher.h"

#include <chrono>
#include <ctime>
#include <iostream>
#include <list>
#include <map>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

#include <unistd.h>

namespace tools::cfgctl {

using orv::cfg::ConfigClient;
using orv::cfg::NotificationHandler;
using orv::cfg::common::IConfigClient;
using velta::net::EventDispatcher;
using velta::protocol::TableInfo;

namespace {

constexpr unsigned transactionWait = 0;  // watching writes nothing
constexpr unsigned attemptInterval = 20; // milliseconds
constexpr unsigned idleInterval = 60000; // milliseconds; nothing depends on it

// Holds each table as it was printed last, and as it was read since.
class Watcher : public orv::cfg::IConfigHandler {
public:
    Watcher(std::vector<TableInfo> tables, const Arguments& arguments)
        : tables_(std::move(tables)), json_(arguments.json), time_(arguments.time) {}

    void getTables(std::list<std::string>& tables) override {
        for (const TableInfo& table : tables_)
            tables.push_back(table.name);
    }

    bool configChanged(IConfigClient& client, const std::string& name) override;
    void process(IConfigClient& client) override;

    // Throws Refused where a reading failed.
    void requireReadings() const;

private:
    std::string asText(const Change& change, const std::string& time) const;

    std::vector<TableInfo> tables_;
    bool json_;
    bool time_;
    std::map<std::string, Rows> printed_; // by table
    std::map<std::string, Rows> read_;    // by table, since the last process()
    bool begun_ = false;
    std::string failure_;
};

bool Watcher::configChanged(IConfigClient& client, const std::string& name) {
    try {
        for (const TableInfo& table : tables_)
            if (name.empty() || name == table.name)
                read_[table.name] = readRows(client, table.name);
    } catch (const Refused& refused) {
        failure_ = refused.what();
        return false;
    }
    return true;
}

void Watcher::process(IConfigClient&) {
    const std::string time = time_ ? timestamp(std::time(nullptr)) : std::string();
    std::string lines;
    for (const TableInfo& table : tables_) {
        const auto now = read_.find(table.name);
        if (now == read_.end())
            continue;
        Rows& before = printed_[table.name];
        if (begun_)
            for (const Change& change : diff(table, before, now->second))
                lines += asText(change, time) + '\n';
        before = std::move(now->second);
    }
    print(lines);
    read_.clear();
    begun_ = true;
}

std::string Watcher::asText(const Change& change, const std::string& time) const {
    if (json_)
        return serialise(asJson(change, time));
    return (time.empty() ? time : time + " ") + asLine(change);
}

void Watcher::requireReadings() const {
    if (!failure_.empty())
        throw Refused(failure_);
}

std::vector<TableInfo> tablesToWatch(const Arguments& arguments) {
    orv::cfg::Connection connection(arguments.socket, programName, answerTimeout);
    connect(connection, arguments.socket);
    ConfigClient client(connection, transactionWait);
    return selectTables(client, arguments.tables);
}

// A reader who goes away is noticed before there is something to write. Files can't be waited for, nor go
// away.
void watchReader(EventDispatcher& dispatcher, bool& gone) {
    try {
        dispatcher.add(STDOUT_FILENO, 0, [&](unsigned) { gone = true; });
    } catch (const std::system_error&) {
    }
}

// The store was there a moment ago: where it does not let this client in, others may be before it.
void begin(NotificationHandler& notifications, EventDispatcher& dispatcher) {
    const auto deadline = std::chrono::steady_clock::now() + connectPatience;
    notifications.initialize();
    while (!notifications.initialized()) {
        if (std::chrono::steady_clock::now() >= deadline)
            require(velta::protocol::code::notConnected);
        dispatcher.handleEvents(attemptInterval);
        notifications.initialize();
    }
}

std::string namesOf(const std::vector<TableInfo>& tables) {
    std::string names;
    for (const TableInfo& table : tables)
        names += " " + printable(table.name);
    return names;
}

} // namespace

void watchCommand(const Arguments& arguments) {
    const std::vector<TableInfo> tables = tablesToWatch(arguments);
    Watcher watcher(tables, arguments);
    EventDispatcher dispatcher;
    NotificationHandler notifications(arguments.socket, dispatcher, programName, false, answerTimeout,
                                      transactionWait, true, false);
    notifications.registerConfigHandler(&watcher);
    begin(notifications, dispatcher);
    std::cerr << "watching" << namesOf(tables) << std::endl;

    bool readerGone = false;
    watchReader(dispatcher, readerGone);
    while (!readerGone) {
        watcher.requireReadings();
        if (!notifications.connected())
            require(velta::protocol::code::notConnected);
        dispatcher.handleEvents(idleInterval);
        notifications.process();
    }
}

} // namespace tools::cfgctl
