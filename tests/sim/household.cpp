#include "sim/household.h"

#include "log.h"
#include "orv/sysloglevel.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <utility>

namespace sim {

using orv::simulation::MemoryLink;
using velta::protocol::EResultCode;
namespace code = velta::protocol::code;

namespace {

constexpr unsigned repeatInterval = 180;                  // seconds, horad's default
constexpr unsigned connectInterval = 100'000;             // microseconds, as the daemon has it
constexpr Microseconds workOfIteration = 1 * millisecond; // of one that asks the store for something
constexpr Microseconds rebootDelay = 5 * second;          // of the component that carries the command out
constexpr Microseconds nextTry = 100 * millisecond;       // of somebody who waits for the transaction
constexpr Microseconds zoneCountsWithin = 62 * second;

constexpr const char* operationNames[] = {
    "size", "selectRow", "selectRowByKey", "writeSingleRow", "updateRow", "start", "commit", "abort",
};

const char* nameOf(Tables::Operation operation) {
    return operationNames[static_cast<std::size_t>(operation)];
}

// What is logged by the year fills a disk. Handlers set their modules' levels when they are made.
void silenceLog() {
    (void)orv::horad::Logger::instance(); // sets its level when it is made, too
    for (const char* const module : {"horad", "timefrmhdl", "timefrm", "deliveries"})
        ORV_Sysloglevel_changeTracelevel(module, 0);
}

std::string shown(const Tables::Change& change) {
    return change.table + (change.id != 0 ? "." + std::to_string(change.id) : "") + " " + change.column +
           ": '" + change.before.getText() + "' to '" + change.after.getText() + "'";
}

} // namespace

// Horad from one boot to the next power cut.
struct Household::Life {
    explicit Life(Household& household)
        : link(household.machine_, household.tables_),
          horad(
              household.planTables_, 0, false,
              [this](orv::cfg::IConfigHandler* handler) { link.add(handler); }, household.machine_) {}

    MemoryLink link;
    orv::horad::Horad horad;
};

Household::Household(const std::string& zone, std::time_t clock)
    : machine_(clock * second),
      journal_(machine_),
      rightClockAhead_(clock * second),
      view_{tables_, machine_, planTables_, repeatInterval} {
    setenv("TZ", zone.c_str(), 1);
    tzset();
    for (const TableShape& table : schema()) {
        tables_.edit(table.name, table.hasManyRows() ? Rows{} : Rows{table.newRow()});
    }
    tables_.onCommit([this](const Tables::Changes& changes) { committed(changes); });
    line_.setQuiet();
}

Household::~Household() = default;

void Household::run(Microseconds span) {
    const Microseconds end = machine_.passed() + span;
    while (machine_.passed() < end && !isOver()) {
        try {
            live_ = true;
            live(end);
            live_ = false;
        } catch (const PowerCut& cut) {
            live_ = false;
            shutDown(cut.boot);
        }
    }
}

const std::optional<std::string>& Household::violation() const {
    static const std::optional<std::string> none;
    return observer_ != nullptr ? observer_->violation() : none;
}

void Household::live(Microseconds end) {
    if (machine_.passed() < offUntil_)
        machine_.passUntil(std::min(offUntil_, end));
    if (machine_.passed() < offUntil_)
        return;
    if (!life_)
        boot();
    while (machine_.passed() < end && !isOver())
        iterate();
}

void Household::boot() {
    ++boots_;
    machine_.restart();
    const Boot boot = std::exchange(nextBoot_, {});
    setClock(boot.clock ? *boot.clock * second : rightClock());
    if (boot.setRightAfter > 0)
        machine_.after(boot.setRightAfter, [this, expected = boots_] {
            if (boots_ == expected)
                setClockRight();
        });
    journal_.note("boot", isoTime(machine_.time()));
    change("Reboot", 0, "Trigger", 0);
    rebootIsComing_ = false;
    setCall(false);
    setStream(false);
    if (observer_ != nullptr)
        observer_->booted();
    life_ = std::make_unique<Life>(*this);
    silenceLog();
    life_->link.onFault([this](Tables::Operation operation, const std::string& table) {
        return beforeOperation(operation, table);
    });
    life_->link.onOperation([this](Tables::Operation operation, const std::string& table,
                                   const EResultCode& result) { noteOperation(operation, table, result); });
    life_->link.setReachable(reachable_);
    for (bool connected = false; !connected; machine_.sleep(connectInterval))
        connected = life_->link.initialize();
}

// An iteration takes time where it has work to do: one that wakes itself would otherwise stop the time.
void Household::iterate() {
    life_->horad.iterate(life_->link);
    ++passes_;
    const bool inTrouble = troubled_ || !reachable_ || !faults_.empty();
    view_.passesSinceTrouble = inTrouble ? 0 : view_.passesSinceTrouble + 1;
    view_.passesSinceFault = inTrouble || disturbed_ ? 0 : view_.passesSinceFault + 1;
    disturbed_ = troubled_ = false;
    if (observer_ != nullptr)
        observer_->passed();
    if (std::exchange(worked_, false))
        machine_.passUntil(machine_.passed() + workOfIteration);
}

void Household::cutPower(const Boot& boot) {
    journal_.note("power cut", "");
    if (!live_)
        return shutDown(boot);
    powerOff_ = true;
    throw PowerCut{boot};
}

void Household::shutDown(const Boot& boot) {
    if (life_)
        life_->link.lose();
    life_.reset();
    powerOff_ = false;
    disturbed();
    view_.passesSinceFault = 0;
    view_.passesSinceTrouble = 0;
    nextBoot_ = boot;
    offUntil_ = machine_.passed() + boot.off;
}

void Household::setClock(Microseconds clock) {
    if (clock == machine_.now())
        return;
    journal_.note("clock", isoTime(static_cast<std::time_t>(clock / second)));
    machine_.setClock(clock);
    disturbed();
}

void Household::setZone(const std::string& zone, bool tellLibrary) {
    journal_.note("zone", zone);
    setenv("TZ", zone.c_str(), 1);
    if (tellLibrary)
        tzset();
    const int fault = beginFault();
    machine_.after(zoneCountsWithin, [this, fault] { endFault(fault); });
}

void Household::edit(const std::string& table, const std::function<void(Rows&)>& change) {
    if (tables_.isTransactionOpen()) {
        machine_.after(nextTry, [this, table, change] { edit(table, change); });
        return;
    }
    Rows rows = tables_.rows(table);
    change(rows);
    if (rows == tables_.rows(table))
        return;
    journal_.note("somebody changes", table);
    tables_.edit(table, std::move(rows));
    disturbed_ = true; // and no more than that
}

void Household::insert(const std::string& table, const Row& row) {
    edit(table, [row](Rows& rows) { rows.push_back(row); });
}

void Household::remove(const std::string& table, int id) {
    edit(table, [id](Rows& rows) {
        rows.erase(std::remove_if(rows.begin(), rows.end(),
                                  [id](const Row& row) { return orv::simulation::idOf(row) == id; }),
                   rows.end());
    });
}

void Household::setCall(bool active) {
    if (view_.call == active)
        return;
    journal_.note("call", active ? "begins" : "ends");
    view_.call = active;
    line_.setCalls(active ? "1" : "0");
}

void Household::setStream(bool running) {
    if (view_.stream == running)
        return;
    journal_.note("stream", running ? "begins" : "ends");
    view_.stream = running;
    line_.setStream(running);
}

int Household::beginFault(Tables::Fault fault) {
    disturbed();
    faults_.emplace(++lastFault_, std::move(fault));
    return lastFault_;
}

void Household::endFault(int number) {
    disturbed();
    faults_.erase(number);
}

int Household::beginAmbush(Tables::Fault fault) {
    ambushes_.emplace(++lastFault_, std::move(fault));
    return lastFault_;
}

void Household::loseConnection() {
    journal_.note("connection", "is lost");
    disturbed();
    if (life_)
        life_->link.lose();
}

void Household::setReachable(bool reachable) {
    journal_.note("store", reachable ? "can be reached" : "can't be reached");
    disturbed();
    reachable_ = reachable;
    if (life_)
        life_->link.setReachable(reachable);
}

EResultCode Household::beforeOperation(Tables::Operation operation, const std::string& table) {
    if (powerOff_)
        return code::notConnected;
    EResultCode result = faults_.empty() ? EResultCode() : firstFailure(faults_, operation, table);
    if (result.ok() && !ambushes_.empty())
        result = firstFailure(ambushes_, operation, table);
    return result;
}

void Household::noteOperation(Tables::Operation operation, const std::string& table,
                              const EResultCode& result) {
    worked_ = true;
    journal_.note(nameOf(operation), table, result.code());
    if (result.ok())
        return;
    disturbed();
    ++view_.failedOperations;
    if (operation == Tables::Operation::UpdateRow)
        ++view_.refusedUpdates;
}

// A fault may wait, and others end meanwhile.
EResultCode Household::firstFailure(const std::map<int, Tables::Fault>& faults, Tables::Operation operation,
                                    const std::string& table) {
    const std::map<int, Tables::Fault> now = faults;
    for (const auto& [number, fault] : now) {
        const EResultCode result = fault ? fault(operation, table) : EResultCode();
        if (!result.ok())
            return result;
    }
    return {};
}

void Household::committed(const Tables::Changes& changes) {
    for (const Tables::Change& change : changes)
        journal_.note("committed", shown(change));
    if (observer_ != nullptr)
        observer_->committed(changes);
    for (const auto& listener : listeners_)
        listener(changes);
    if (tables_.number("Reboot", "Trigger") == 1 && !rebootIsComing_)
        rebootSoon();
}

void Household::rebootSoon() {
    rebootIsComing_ = true;
    reboots_.push_back(machine_.time());
    machine_.after(rebootDelay, [this, expected = boots_] {
        if (boots_ == expected)
            cutPower(rebootHow_ ? rebootHow_() : Boot{});
    });
}

} // namespace sim
