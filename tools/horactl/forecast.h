#pragma once

#include "horad.h"
#include "log.h"
#include "simulation/machine.h"
#include "simulation/memorylink.h"
#include "simulation/tables.h"
#include "tools/horactl/household.h"
#include "tools/horactl/linefiles.h"

#include <cstdint>
#include <ctime>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <vector>

namespace tools::horactl {

// From its begin up to, not including, its end: seconds since the epoch.
struct Span {
    std::time_t begin;
    std::time_t end;
};

// What a service does once it is started.
struct Service {
    enum class Outcome { Hangs, Succeeds, Fails };

    Outcome outcome = Outcome::Hangs;
    std::int64_t duration = 60; // seconds until it is done
};

struct ClockStep {
    std::time_t at;
    std::int64_t by; // seconds
};

// What happens in the house while horad lives there. Moments are those of a clock that was never set.
struct Circumstances {
    std::int64_t uptime = std::int64_t{100} * 24 * 3600; // seconds, at the start
    std::vector<Span> calls;
    std::vector<Span> streams;
    Service service;
    std::vector<ClockStep> clockSteps;
};

// How horad is started.
struct Start {
    std::time_t at;           // of the first reading
    unsigned repeatDelay = 0; // seconds between two runs of a service; 0 for horad's default
    bool verbose = false;     // whether its debug lines are logged
};

// A horad that lives on a household's tables in memory, on a machine whose time passes at once. It is the
// daemon's own class: what it writes here is what the daemon would write.
//
// An iteration waits two seconds, none while a notice is pending; a write takes no time. When horad triggers
// a reboot, the router is up again a minute later, with a new horad.
//
// One at a time: the probes' files are those of the process.
class Forecast : private orv::horad::LogSink {
public:
    static constexpr std::int64_t rebootDuration = 60; // seconds

    using Changes = orv::simulation::Tables::Changes;
    // The cells that a commit of horad changed, and what the clock showed in the pass that wrote.
    using OnCommit = std::function<void(std::time_t time, const Changes& changes)>;

    Forecast(const Household& household, const Start& start, const Circumstances& circumstances = {});
    ~Forecast();
    Forecast(const Forecast&) = delete;
    Forecast& operator=(const Forecast&) = delete;

    // A line of horad's log, and what the clock showed.
    using OnLine = std::function<void(std::time_t time, orv::horad::LogLevel level, const std::string& module,
                                      const std::string& text)>;

    // Told of each commit that changed something. tables() holds it by then.
    void onCommit(OnCommit handler) { onCommit_ = std::move(handler); }
    // Told of the lines that horad logs; nobody is at first. Lines that repeat are counted, as horad does.
    void onLine(OnLine handler) { onLine_ = std::move(handler); }

    // Lets horad live until that moment, as a clock shows it that was never set, or until `goOn` says no
    // after an iteration. The last iteration is waited for: it may end two seconds later.
    void runUntil(std::time_t end, const std::function<bool()>& goOn = {});
    // Lets horad live until it has nothing more to write, a minute at most.
    void settle();

    std::time_t now() { return machine_.time(); }
    const orv::simulation::Tables& tables() const { return tables_; }
    std::uint64_t iterations() const { return iterations_; }

private:
    using Microseconds = orv::simulation::Machine::Microseconds;
    struct Life;

    void schedule(const Circumstances& circumstances);
    void scheduleSpan(const Span& span, int& running, void (LineFiles::*set)(bool));
    Microseconds passedAt(std::time_t moment) const;
    bool begin(Microseconds last);
    void iterate();
    void reboot();
    void committed(const Changes& changes);
    void startService(const std::string& table, int id);
    void setNumber(const std::string& table, int id, const char* column, int number);

    void take(orv::horad::LogLevel level, const std::string& module, const char* text) override;

    Start start_;
    Service service_;
    std::list<std::string> planTables_;
    LineFiles line_;
    orv::simulation::Machine machine_;
    orv::simulation::Tables tables_;
    OnCommit onCommit_;
    OnLine onLine_; // lines that are counted are told at the very end
    orv::horad::RedirectedLog redirectedLog_;
    orv::horad::CountedRepeats repeats_;
    std::unique_ptr<Life> life_;
    int calls_ = 0; // that run at the same time
    int streams_ = 0;
    std::uint64_t iterations_ = 0;
    std::uint64_t commits_ = 0;
    bool rebooting_ = false;
    Microseconds downUntil_ = 0; // of the time that passed
};

} // namespace tools::horactl
