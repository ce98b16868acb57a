#pragma once

#include "orv/system.h"
#include "timeplan/timeplanflex.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace orv::horad {

// A span of time inside which a service is to be run, again and again at an interval, up to a number of runs.
class Timeframe {
public:
    // Microseconds since the epoch, in 64 bits on every machine.
    using TimePoint = std::chrono::time_point<std::chrono::system_clock, std::chrono::microseconds>;

    // name, id: the service's table and its row there. start, end: seconds since the epoch. maxRuns: a
    // negative one means no limit. interval: seconds between two runs that fall due. The plan may be null.
    // The system, whose clock the frame goes by, outlives it.
    Timeframe(const std::string& name, int id, std::uint32_t start, std::uint32_t end, int mode,
              const std::string& text, int maxRuns, int interval, int runCounter,
              std::shared_ptr<TimePlanFlex> plan, System& system = System::real());

    const std::string& name() const { return name_; }
    int id() const { return id_; }
    TimePoint start() const { return start_; }
    TimePoint end() const { return end_; }
    // The moment after which the next run falls due; at first the start.
    TimePoint executionTime() const { return executionTime_; }
    int mode() const { return mode_; }
    const std::string& text() const { return text_; }
    int maxRuns() const { return maxRuns_; } // -1 is no limit
    int interval() const { return interval_; }
    int runCounter() const { return runCounter_; }
    void setRunCounter(int runs) { runCounter_ = runs; }
    std::shared_ptr<TimePlanFlex> timePlan() const { return timePlan_; }
    void setTimePlan(std::shared_ptr<TimePlanFlex>&& plan) { timePlan_ = std::move(plan); }

    // What keeps runs from being possible, asked in this order.
    enum class Closing : std::uint8_t { None, Over, NotBegun, RunsUsedUp };

    // Whether runs are possible now: inside the span, both its ends included, and with a run left.
    bool isOpen() const { return closing() == Closing::None; }
    // What closes the frame now. The three below it are asked.
    Closing closing() const;
    bool isOver() const { return end_ < now(); }
    bool hasBegun() const { return !(now() < start_); }
    // A limit of 3 is used up by the fourth run. C8: sic
    bool hasRunLeft() const;
    // Whether the execution time has passed: an open frame falls due then.
    bool executionTimeHasPassed() const { return executionTime_ < now(); }
    // Sets the due flag where the frame is open and its execution time has passed, and moves that on. Says
    // what closes the frame.
    Closing checkExecution();
    // Moves the execution time on by the interval. True where that would be behind the end: it stays then.
    bool updateExecutionTime();
    bool isDue() const { return due_; }
    void clearDue() { due_ = false; }
    // Whether the plan lets a run start now. False without a plan.
    bool isInPlan() const;

    // Whether the span, the mode, the text or the limit differ. What tells of runs, and of the plan, does not
    // count.
    bool operator!=(const Timeframe& other) const;

private:
    TimePoint now() const;

    std::string name_;
    std::int32_t id_;
    TimePoint start_;
    TimePoint end_;
    TimePoint executionTime_;
    std::int32_t mode_;
    std::string text_;
    std::int32_t maxRuns_;
    std::int32_t interval_;
    std::int32_t runCounter_;
    bool due_ = false;
    std::shared_ptr<TimePlanFlex> timePlan_;
    System* system_;
};

} // namespace orv::horad
