#include "handlers/timeframehandler.h"

#include "handlers/dbm.h"
#include "handlers/onecell.h"
#include "handlers/timeframedecision.h"
#include "handlers/transaction.h"
#include "probes/systemidle.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace orv::horad {

using cfg::common::IConfigClient;
using velta::Value;
using velta::ValueList;

namespace {

constexpr unsigned beginRetryInterval = 100000; // microseconds

// The comparison of two plans is one-sided: either one may have what the other lacks.
bool differ(const TimePlanFlex& one, const TimePlanFlex& other) {
    return one != other || other != one;
}

} // namespace

// What the decision may ask, at the moment of one pass.
class TimeframeHandler::Situation : public TimeframeSituation {
public:
    Situation(IConfigClient& client, const Log& log, int id) : client_(client), log_(log), id_(id) {}

    void dueTaken() override { log_.debug("executionRequired for Timeframe(Id=%d)", id_); }
    bool isIdle() override { return isSystemIdle(client_, SystemIdleType::FirmwareDownload); }

private:
    IConfigClient& client_;
    const Log& log_;
    int id_;
};

TimeframeHandler::TimeframeHandler(unsigned repeatInterval, bool debug, System& system)
    : system_(system),
      log_("timefrmhdl", "timeframehandler"),
      states_(log_),
      repeatInterval_(repeatIntervalOf(repeatInterval)) {
    log_.setVerbose(debug);
}

void TimeframeHandler::getTables(std::list<std::string>& tables) {
    tables.emplace_back(dbm::TimeFrame);
    tables.emplace_back(dbm::FileTransfer);
}

bool TimeframeHandler::configChanged(IConfigClient& client, const std::string&) {
    TimeframeReader reader(client, log_, repeatInterval_, system_);
    std::optional<Timeframes> loaded = reader.read();
    if (loaded)
        merge(std::move(*loaded));
    const bool statesLoaded = states_.load(client, dbm::FileTransfer);
    schedule();
    return reader.complete() && statesLoaded;
}

void TimeframeHandler::merge(Timeframes&& loaded) {
    for (auto& [id, frame] : loaded)
        mergeOne(id, frame);
    for (const auto& [id, frame] : timeframes_)
        if (loaded.count(id) == 0)
            log_.debug("Delete removed Timefames Id=%d", id); // C29: sic
    timeframes_.swap(loaded);
    schedule();
}

// Behind whatever moves a frame or a state.
void TimeframeHandler::schedule() {
    schedule_.clear();
    schedule_.reserve(timeframes_.size());
    for (const auto& [id, frame] : timeframes_)
        schedule_.push_back({id, *frame, states_.get(frame->name(), frame->id())});
}

// A frame that did not change keeps what it knows of its runs: it takes the place of the loaded one.
void TimeframeHandler::mergeOne(int id, std::unique_ptr<Timeframe>& loaded) {
    const auto kept = timeframes_.find(id);
    if (kept == timeframes_.end() || *kept->second != *loaded) {
        log_.debug(kept != timeframes_.end() ? "Update entry from Database Id=%d"
                                             : "New entry from Database Id=%d",
                   id);
        return;
    }
    std::shared_ptr<TimePlanFlex> plan = loaded->timePlan();
    if (plan && (!kept->second->timePlan() || differ(*kept->second->timePlan(), *plan)))
        kept->second->setTimePlan(std::move(plan));
    loaded = std::move(kept->second);
}

void TimeframeHandler::checkTimeframes(IConfigClient& client) {
    if (firstPass_) {
        log_.debug("First process: synchronise");
        firstPass_ = !enableServiceDaemon(client);
        return;
    }
    bool acted = false;
    for (const Scheduled& scheduled : schedule_)
        acted = check(client, scheduled) || acted;
    if (acted)
        process(client);
}

// False where its transaction failed: the next pass tries again.
bool TimeframeHandler::enableServiceDaemon(IConfigClient& client) {
    Transaction transaction(client);
    EResultCode result = transaction.started();
    if (result.ok()) {
        startServiceDaemon(client);
        result = transaction.commitOrAbort();
    }
    if (!result.ok())
        log_.error("start wexd failed: %s", result.strerror().c_str());
    return result.ok();
}

// True where the frame's service is to be started.
bool TimeframeHandler::check(IConfigClient& client, const Scheduled& scheduled) {
    Timeframe& frame = scheduled.frame;
    Situation situation(client, log_, scheduled.id);
    switch (obstacleOf(frame, scheduled.state, situation)) {
    case TimeframeObstacle::None:
        return countRun(client, scheduled.id, frame);
    case TimeframeObstacle::Succeeded:
        log_.debug("Skip service %s(Id=%d), already successfull finished", frame.name().c_str(), frame.id());
        return false;
    case TimeframeObstacle::Running:
        log_.debug("Skip service %s(Id=%d), already running", frame.name().c_str(), frame.id());
        return false;
    case TimeframeObstacle::LineBusy:
        log_.info("system not idle, reschedule"); // outside the plan too, C28: sic
        return false;
    case TimeframeObstacle::Over:
    case TimeframeObstacle::NotBegun:
    case TimeframeObstacle::RunsUsedUp:
    case TimeframeObstacle::NotDue:
    case TimeframeObstacle::OutsidePlan:
        return false;
    }
    return false;
}

bool TimeframeHandler::countRun(IConfigClient& client, int id, Timeframe& frame) {
    frame.setRunCounter(static_cast<int>(static_cast<std::uint32_t>(frame.runCounter()) + 1));
    ValueList row;
    if (!client.selectRowByKey(dbm::TimeFrame, dbm::Id, std::to_string(id), row).ok())
        return false;
    log_.debug("Timeframes (%d) active -> perform Action", row.getValue(dbm::Id).getInteger());
    servicesToStart_[row.getValue(dbm::TimeFrame_ServicetableId).getInteger()] =
        row.getValue(dbm::TimeFrame_Servicetable).getText();
    executed_.push_back(id);
    return true;
}

void TimeframeHandler::process(IConfigClient& client) {
    if (!beginTransaction(client))
        return;
    Transaction transaction = Transaction::takeOver(client);
    for (const auto& [id, table] : servicesToStart_)
        startService(client, table, id);
    for (const int id : executed_) {
        const auto frame = timeframes_.find(id);
        if (frame != timeframes_.end()) // its row may have gone meanwhile
            writeRunCounter(client, id, frame->second->runCounter());
    }
    const EResultCode closed = transaction.commitOrAbort();
    if (!closed.ok()) {
        log_.error("close dababase transaction failed: %s", closed.strerror().c_str());
        return;
    }
    servicesToStart_.clear();
    executed_.clear();
}

// Counts up: it gives up when the counter is used up, which takes years, or when the system is stopping.
// C31: sic
bool TimeframeHandler::beginTransaction(IConfigClient& client) {
    constexpr std::uint32_t firstAttempt = 1000;
    for (std::uint32_t attempt = firstAttempt; attempt != 0; ++attempt) {
        if (client.startTransaction().ok())
            return true;
        if (system_.stopping())
            break;
        system_.sleep(beginRetryInterval);
    }
    return false;
}

void TimeframeHandler::startService(IConfigClient& client, const std::string& table, int id) {
    log_.debug("_startService(%s, %d)", table.c_str(), id);
    const std::string key = std::to_string(id);
    ValueList row;
    const EResultCode selected = client.selectRowByKey(table, dbm::Id, key, row);
    if (!selected.ok()) {
        log_.error("read service table \"%s\" failed: %s", table.c_str(), selected.strerror().c_str());
        return;
    }
    if (!row.hasValue(dbm::Service_Status) || !row.hasValue(dbm::Service_Result))
        return;
    const int status = row.getValue(dbm::Service_Status).getInteger();
    const int result = row.getValue(dbm::Service_Result).getInteger();
    if (status == ServiceIdle || (status == ServiceDone && result != 0)) {
        const EResultCode saved = client.updateRow(
            table, dbm::Id, key, oneCell(dbm::Service_Status, Value::Integer, ServiceStarted));
        if (!saved.ok())
            log_.error("can't save %s.%d: %s", table.c_str(), id, saved.strerror().c_str());
    }
    if (table == dbm::FileTransfer)
        startServiceDaemon(client);
    states_.update(table, id,
                   stateOfService(status, result)); // as it was read: the notice of the change follows
}

void TimeframeHandler::startServiceDaemon(IConfigClient& client) {
    log_.debug("start wexd");
    const EResultCode written =
        client.writeSingleRow(dbm::Wexd, 0, oneCell(dbm::Wexd_Enable, Value::Integer, 1));
    if (!written.ok())
        log_.error("start wexd failed: %s", written.strerror().c_str());
}

void TimeframeHandler::writeRunCounter(IConfigClient& client, int id, int runs) {
    const EResultCode written = client.updateRow(dbm::TimeFrame, dbm::Id, std::to_string(id),
                                                 oneCell(dbm::TimeFrame_RunCounter, Value::Counter, runs));
    if (!written.ok())
        log_.error("can't update run counter %d: %s", id, written.strerror().c_str());
}

} // namespace orv::horad
