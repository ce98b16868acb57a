#include "tools/horactl/forecast.h"

#include "handlers/dbm.h"
#include "handlers/onecell.h"
#include "handlers/servicestates.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace tools::horactl {

namespace dbm = orv::horad::dbm;
using orv::simulation::Machine;
using orv::simulation::MemoryLink;
using orv::simulation::Tables;
using velta::Value;
using velta::ValueList;

namespace {

constexpr std::int64_t settledWithin = 60; // seconds
constexpr int serviceUnderWay = 2;         // a "Status"

} // namespace

// A horad from one start of the router to the next.
struct Forecast::Life {
    explicit Life(Forecast& forecast)
        : link(forecast.machine_, forecast.tables_),
          horad(
              forecast.planTables_, forecast.start_.repeatDelay, forecast.start_.verbose,
              [this](orv::cfg::IConfigHandler* handler) { link.add(handler); }, forecast.machine_) {}

    MemoryLink link;
    orv::horad::Horad horad;
};

Forecast::Forecast(const Household& household, const Start& start, const Circumstances& circumstances)
    : start_(start),
      service_(circumstances.service),
      planTables_(household.planTables),
      machine_(start.at * Machine::second),
      tables_(household.inMemory()),
      redirectedLog_(*this),
      repeats_(
          [this] { return orv::horad::Repeats::TimePoint(std::chrono::microseconds(machine_.passed())); }) {
    orv::horad::Logger::instance().setVerbose(start.verbose);
    setNumber(dbm::Reboot, 0, dbm::Reboot_Trigger, 0); // one that was triggered before is over
    tables_.onCommit([this](const Tables::Changes& changes) { committed(changes); });
    machine_.setUptime(static_cast<unsigned>(circumstances.uptime));
    schedule(circumstances);
}

Forecast::~Forecast() = default;

void Forecast::schedule(const Circumstances& circumstances) {
    for (const Span& call : circumstances.calls)
        scheduleSpan(call, calls_, &LineFiles::setCall);
    for (const Span& stream : circumstances.streams)
        scheduleSpan(stream, streams_, &LineFiles::setStream);
    for (const ClockStep& step : circumstances.clockSteps)
        if (step.at >= start_.at) // an earlier one has been: the clock shows the start already
            machine_.at(passedAt(step.at),
                        [this, by = step.by] { machine_.setClock(machine_.now() + by * Machine::second); });
}

// Spans may overlap: the line is busy until the last one ends.
void Forecast::scheduleSpan(const Span& span, int& running, void (LineFiles::*set)(bool)) {
    if (span.end <= start_.at)
        return;
    machine_.at(std::max<Microseconds>(passedAt(span.begin), 0), [this, &running, set] {
        ++running;
        (line_.*set)(true);
    });
    machine_.at(passedAt(span.end), [this, &running, set] { (line_.*set)(--running > 0); });
}

Forecast::Microseconds Forecast::passedAt(std::time_t moment) const {
    return (Microseconds{moment} - start_.at) * Machine::second;
}

void Forecast::runUntil(std::time_t end, const std::function<bool()>& goOn) {
    const Microseconds last = passedAt(end);
    while (machine_.passed() < last) {
        if (!life_ && !begin(last))
            return;
        iterate();
        if (goOn && !goOn())
            return;
    }
}

// A service is started by horad's second pass: the first one only wakes the daemon that runs it.
void Forecast::settle() {
    constexpr std::uint64_t leastIterations = 2;
    std::uint64_t commits = commits_;
    runUntil(start_.at + settledWithin, [&] {
        const bool quiet = commits == commits_ && !tables_.hasNotices() && life_ != nullptr;
        commits = commits_;
        return !quiet || iterations_ < leastIterations;
    });
}

// False where the router is not up again by then.
bool Forecast::begin(Microseconds last) {
    machine_.passUntil(std::min(downUntil_, last));
    if (machine_.passed() >= last && downUntil_ >= last)
        return false;
    life_ = std::make_unique<Life>(*this);
    (void)life_->link.initialize(); // tables in memory can always be reached
    return true;
}

void Forecast::iterate() {
    life_->horad.iterate(life_->link);
    repeats_.tell();
    ++iterations_;
    if (std::exchange(rebooting_, false))
        reboot();
}

void Forecast::reboot() {
    life_.reset();
    downUntil_ = machine_.passed() + rebootDuration * Machine::second;
    machine_.at(downUntil_, [this] {
        machine_.restart();
        setNumber(dbm::Reboot, 0, dbm::Reboot_Trigger, 0);
    });
}

void Forecast::committed(const Tables::Changes& changes) {
    if (changes.empty())
        return;
    ++commits_;
    if (onCommit_)
        onCommit_(machine_.time(), changes);
    for (const Tables::Change& change : changes) {
        if (change.table == dbm::Reboot && change.after.getInteger() == 1)
            rebooting_ = true;
        if (change.column == dbm::Service_Status && change.after.getInteger() == orv::horad::ServiceStarted)
            startService(change.table, change.id);
    }
}

void Forecast::startService(const std::string& table, int id) {
    if (service_.outcome == Service::Outcome::Hangs)
        return;
    const int result = service_.outcome == Service::Outcome::Succeeds ? 0 : 1;
    machine_.after(0, [this, table, id] { setNumber(table, id, dbm::Service_Status, serviceUnderWay); });
    machine_.after(service_.duration * Machine::second, [this, table, id, result] {
        setNumber(table, id, dbm::Service_Result, result);
        setNumber(table, id, dbm::Service_Status, orv::horad::ServiceDone);
    });
}

void Forecast::take(orv::horad::LogLevel level, const std::string& module, const char* text) {
    if (onLine_)
        onLine_(machine_.time(), level, module, text);
}

// Somebody else writes; nothing where the row is not there.
void Forecast::setNumber(const std::string& table, int id, const char* column, int number) {
    Tables::Rows rows = tables_.rows(table);
    ValueList* const row = orv::simulation::findRow(rows, id);
    if (row == nullptr)
        return;
    *row = orv::simulation::with(*row, orv::horad::oneCell(column, Value::Integer, number));
    tables_.edit(table, std::move(rows));
}

} // namespace tools::horactl
