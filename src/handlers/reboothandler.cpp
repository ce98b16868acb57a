#include "handlers/reboothandler.h"

#include "handlers/dbm.h"
#include "handlers/onecell.h"
#include "handlers/rebootslot.h"
#include "handlers/transaction.h"
#include "probes/systemidle.h"
#include "timeplan/isotime.h"

#include <optional>

namespace orv::horad {

using cfg::common::IConfigClient;
using velta::Value;
using velta::ValueList;
using velta::protocol::EResultCode;

namespace {

constexpr int startPauses = 120;                      // between the attempts to start a transaction
constexpr unsigned transactionRetryInterval = 500000; // microseconds

constexpr const char* dayLabels[WeekSlots::days] = {"Mo", "Tu", "We", "Th", "Fr", "Sa", "Su"};

} // namespace

// What the decision may ask, at the moment of one pass.
class RebootHandler::Situation : public RebootSituation {
public:
    Situation(const RebootHandler& handler, IConfigClient& client, std::time_t now)
        : handler_(handler), client_(client), now_(now) {}

    bool isIdle() override { return isSystemIdle(client_, SystemIdleType::Reboot); }
    bool isRebootAllowed() override { return handler_.__isRebootAllowed(handler_.lastReboot_, now_); }

private:
    const RebootHandler& handler_;
    IConfigClient& client_;
    std::time_t now_;
};

RebootHandler::RebootHandler(System& system)
    : system_(system), timePlan_(0, dbm::AutoReboot, false), log_("horad", "reboothandler") {}

void RebootHandler::getTables(std::list<std::string>& tables) {
    tables.emplace_back(dbm::AutoReboot);
}

bool RebootHandler::configChanged(IConfigClient& client, const std::string& table) {
    return table.empty() || table == dbm::AutoReboot ? __readAutoRebootCfg(client) : true;
}

bool RebootHandler::__readAutoRebootCfg(IConfigClient& client) {
    ValueList row;
    const EResultCode selected = client.selectRow(dbm::AutoReboot, 0, row, velta::NameList());
    if (!selected.ok()) {
        log_.error("Failed to read AutoReboot table: %s", selected.strerror().c_str());
        return false;
    }
    if (row.getValue(dbm::AutoReboot_Enable).getInteger() == 0) {
        timePlan_.clear();
        enabled_ = false;
        log_.debug("Auto reboot disabled");
        return true;
    }
    time_ = row.getValue(dbm::AutoReboot_Time).getText();
    enabled_ = true;
    weekDay_ = static_cast<std::uint8_t>(row.getValue(dbm::AutoReboot_WeekDay).getInteger());
    lastReboot_ = row.getValue(dbm::AutoReboot_LastReboot).getText();
    minimumRuntime_ = static_cast<std::uint32_t>(row.getValue(dbm::AutoReboot_MinimumRuntime).getInteger());
    log_.info("Auto reboot enabled: %s, time: '%s', day: '%s'", enabled_ ? "true" : "false", time_.c_str(),
              weekDay_ == everyDay ? "every day" : dayLabels[rebootDayOf(weekDay_)]);
    if (time_.empty()) {
        log_.error("Auto reboot time is empty, cannot set time plan.");
        return false;
    }
    enterRebootSlot(timePlan_, time_, weekDay_);
    return true;
}

void RebootHandler::process(IConfigClient&) {
    // A reboot depends on the clock, not on changes: checkReboot().
}

void RebootHandler::checkReboot(IConfigClient& client) {
    log_.debug("process");
    if (!enabled_) {
        log_.debug("Auto reboot is disabled, skipping process.");
        return;
    }
    const std::string now = __currentTimeToIsoFormat();
    __updateState(client);
    log_.debug("Current time is '%s'", now.c_str());
    if (decision_.state != RebootState::Due) {
        log_.debug("No auto reboot scheduled for now  (%s) ", now.c_str());
        return;
    }
    if (!__startTransaction(client)) {
        log_.error("Failed to start transaction for auto reboot.");
        decision_.state = RebootState::Idle;
        return;
    }
    trigger(client, now);
}

void RebootHandler::__updateState(IConfigClient& client) {
    const std::time_t now = __currTime();
    if (isInSlot(now))
        decision_ = decision_.inSlot();
    Situation situation(*this, client, now);
    decision_ = decision_.next(now, situation, log_);
}

bool RebootHandler::isInSlot(std::time_t now) const {
    const std::optional<LocalMoment> moment = LocalMoment::at(now);
    return moment && timePlan_.isInTimeslot(*moment);
}

bool RebootHandler::__isRebootAllowed(const std::string& lastReboot, const std::time_t& now) const {
    const unsigned uptime = __getUptime();
    std::optional<std::time_t> last;
    if (!lastReboot.empty())
        last = momentOf(lastReboot);
    switch (obstacleOfReboot(uptime, now, last, minimumRuntime_)) {
    case RebootObstacle::None:
        return true;
    case RebootObstacle::UptimeTooShort:
        log_.debug("Uptime is only %u seconds, skipping reboot.", uptime);
        return false;
    case RebootObstacle::LastRebootTooRecent:
        log_.debug("Last auto reboot was only %.0f seconds ago, skipping reboot.",
                   std::difftime(now, last.value_or(0)));
        return false;
    }
    return false;
}

bool RebootHandler::__startTransaction(IConfigClient& client) {
    const bool open = client.isTransactionOpen();
    for (int pauses = 0; !open && !client.startTransaction().ok() && pauses < startPauses; ++pauses)
        system_.sleep(transactionRetryInterval);
    return client.isTransactionOpen();
}

void RebootHandler::trigger(IConfigClient& client, const std::string& now) {
    Transaction transaction = Transaction::takeOver(client);
    decision_.state = RebootState::Triggered;
    log_.info("Trigger auto reboot now at '%s'", now.c_str());
    // Neither result counts: a table that can't be written must not keep the other one back. C24: sic
    (void)client.writeSingleRow(dbm::Reboot, 0, oneCell(dbm::Reboot_Trigger, Value::Integer, 1));
    (void)client.writeSingleRow(dbm::AutoReboot, 0, oneCell(dbm::AutoReboot_LastReboot, now));
    if (!transaction.commitOrAbort().ok())
        log_.error("Failed to commit auto reboot transaction.");
    lastReboot_ = now; // after a failed commit too: nobody knows what came of it
}

std::time_t RebootHandler::__currTime() {
    return system_.time();
}

std::string RebootHandler::__currentTimeToIsoFormat() {
    constexpr std::int64_t aSecond = 1'000'000; // microseconds
    return isoTime(static_cast<std::time_t>(system_.now() / aSecond));
}

unsigned RebootHandler::__getUptime() const {
    return system_.uptime();
}

} // namespace orv::horad
