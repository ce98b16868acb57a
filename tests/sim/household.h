#pragma once

#include "horad.h"
#include "sim/journal.h"
#include "sim/schema.h"
#include "sim/view.h"
#include "simulation/machine.h"
#include "simulation/memorylink.h"
#include "simulation/tables.h"
#include "support/kernelfiles.h"

#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace sim {

using orv::simulation::Machine;
using orv::simulation::Tables;
using Microseconds = Machine::Microseconds;

inline constexpr Microseconds millisecond = 1000;
inline constexpr Microseconds second = Machine::second;
inline constexpr Microseconds minute = 60 * second;
inline constexpr Microseconds hour = 60 * minute;
inline constexpr Microseconds day = 24 * hour;

// Who looks on, and says when something is wrong.
class Observer {
public:
    virtual ~Observer() = default;

    // A horad begins that knows nothing.
    virtual void booted() {}
    // Horad committed; the cells that it changed.
    virtual void committed(const Tables::Changes&) {}
    // An iteration of horad's loop is over.
    virtual void passed() {}
    // What was expected and did not happen; the household stands still from then on.
    virtual const std::optional<std::string>& violation() const = 0;
};

// A router's boot, after the power was off.
struct Boot {
    Microseconds off = 40 * second;
    // What the clock shows then; nothing for what is right.
    std::optional<std::time_t> clock;
    // When it is set right, from the boot on. 0 for never.
    Microseconds setRightAfter = 0;
};

// A router with horad on it, in a house where things happen.
//
// Time passes only in run(), and in what horad waits for. What happens meanwhile is put on the machine's
// timetable. The household counts the disturbances: whatever horad needs an iteration or two to get over.
class Household {
public:
    // The zone is the process's from then on: one household at a time. The clock is right, in seconds since
    // the epoch. The tables are those of a new store.
    Household(const std::string& zone, std::time_t clock);
    ~Household();
    Household(const Household&) = delete;
    Household& operator=(const Household&) = delete;

    // Not owned; outlives the household's last run().
    void observe(Observer* observer) { observer_ = observer; }
    const View& view() const { return view_; }
    Machine& machine() { return machine_; }
    const Tables& tables() const { return tables_; }
    bool isTransactionOpen() { return tables_.isTransactionOpen(); }
    Journal& journal() { return journal_; }

    // Lets that much time pass. It ends earlier where something is wrong. What horad waits for in the last
    // iteration is waited for.
    void run(Microseconds span);
    // The same, until the clock would show that moment if it was right.
    void runUntil(std::time_t moment) { run(moment * second - rightClock()); }
    std::uint64_t passes() const { return passes_; }
    // Why the household stands still.
    const std::optional<std::string>& violation() const;

    // What the clock would show if it was right, in microseconds since the epoch.
    Microseconds rightClock() const { return rightClockAhead_ + machine_.passed(); }
    void setClock(Microseconds clock);
    void setClockRight() { setClock(rightClock()); }
    // Where the C library is not told, it finds out when somebody asks it to look.
    void setZone(const std::string& zone, bool tellLibrary = true);

    // Somebody else's commit. It waits while a transaction is open.
    void edit(const std::string& table, const std::function<void(Rows&)>& change);
    void insert(const std::string& table, const Row& row);
    void remove(const std::string& table, int id);
    template <typename Cell>
    void change(const std::string& table, int id, const std::string& column, const Cell& cell) {
        edit(table, [=](Rows& rows) {
            for (Row& row : rows)
                if (orv::simulation::idOf(row) == id)
                    set(row, column, cell);
        });
    }
    // Told of each of horad's commits, behind the observer.
    void onCommit(std::function<void(const Tables::Changes&)> listener) {
        listeners_.push_back(std::move(listener));
    }

    void setCall(bool active);
    void setStream(bool running);

    // Something happened that horad needs an iteration to get over.
    void disturbed() { disturbed_ = troubled_ = true; }
    // A disturbance that lasts, and what it makes of horad's operations. Returns its number.
    int beginFault(Tables::Fault fault = nullptr);
    void endFault(int number);
    // What it makes of an operation is a disturbance; that it lies in wait is none.
    int beginAmbush(Tables::Fault fault);
    void endAmbush(int number) { ambushes_.erase(number); }
    // The store's connection is lost. It comes back when the store can be reached.
    void loseConnection();
    void setReachable(bool reachable);

    // The power is cut, wherever horad is. As an event, or between two runs.
    void cutPower(const Boot& boot);
    unsigned boots() const { return boots_; }
    // How the router boots when horad asked for it; by default it takes 40 seconds and the clock is right.
    void onReboot(std::function<Boot()> how) { rebootHow_ = std::move(how); }
    // The moments of the clock at which horad asked for a reboot.
    const std::vector<std::time_t>& reboots() const { return reboots_; }
    bool isRunning() const { return life_ != nullptr; }

private:
    using EResultCode = velta::protocol::EResultCode;

    struct PowerCut {
        Boot boot;
    };
    struct Life;

    void live(Microseconds end);
    void boot();
    void iterate();
    void shutDown(const Boot& boot);
    bool isOver() const { return observer_ != nullptr && observer_->violation().has_value(); }
    EResultCode beforeOperation(Tables::Operation operation, const std::string& table);
    void noteOperation(Tables::Operation operation, const std::string& table, const EResultCode& result);
    static EResultCode firstFailure(const std::map<int, Tables::Fault>& faults, Tables::Operation operation,
                                    const std::string& table);
    void committed(const Tables::Changes& changes);
    void rebootSoon();

    Machine machine_;
    Tables tables_;
    Journal journal_;
    Microseconds rightClockAhead_;
    std::list<std::string> planTables_ = {"WlanTimePlans", "TimePlans"};
    View view_;
    KernelFiles line_;
    Observer* observer_ = nullptr;
    std::vector<std::function<void(const Tables::Changes&)>> listeners_;

    std::map<int, Tables::Fault> faults_; // that last
    std::map<int, Tables::Fault> ambushes_;
    int lastFault_ = 0;
    bool disturbed_ = true;
    bool troubled_ = true; // by more than somebody else's commit
    bool worked_ = false;  // horad asked the store for something in this iteration
    bool reachable_ = true;
    std::uint64_t passes_ = 0;

    std::unique_ptr<Life> life_;
    bool live_ = false;     // horad is on the stack
    bool powerOff_ = false; // from the cut until horad is gone
    Microseconds offUntil_ = 0;
    Boot nextBoot_;
    unsigned boots_ = 0;
    bool rebootIsComing_ = false;
    std::function<Boot()> rebootHow_;
    std::vector<std::time_t> reboots_;
};

} // namespace sim
