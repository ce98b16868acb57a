#include "timeplan/timeframe.h"

#include "log.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace orv::horad {

namespace {

constexpr int unlimited = -1;
constexpr const char* logModule = "timefrm";
constexpr const char* logSource = "timeframe";

Timeframe::TimePoint atSeconds(std::uint32_t seconds) {
    return Timeframe::TimePoint(std::chrono::seconds(seconds));
}

} // namespace

Timeframe::Timeframe(const std::string& name, int id, std::uint32_t start, std::uint32_t end, int mode,
                     const std::string& text, int maxRuns, int interval, int runCounter,
                     std::shared_ptr<TimePlanFlex> plan, System& system)
    : name_(name),
      id_(id),
      start_(atSeconds(start)),
      end_(atSeconds(end)),
      executionTime_(start_),
      mode_(mode),
      text_(text),
      maxRuns_(std::max(maxRuns, unlimited)),
      interval_(interval),
      runCounter_(runCounter),
      timePlan_(std::move(plan)),
      system_(&system) {
    Log(logModule, logSource).setVerbose(true);
}

// Read anew for each comparison: a check may take a while, and the moments that it looks at pass meanwhile.
Timeframe::TimePoint Timeframe::now() const {
    return TimePoint(std::chrono::microseconds(system_->now()));
}

Timeframe::Closing Timeframe::closing() const {
    if (isOver())
        return Closing::Over;
    if (!hasBegun())
        return Closing::NotBegun;
    return hasRunLeft() ? Closing::None : Closing::RunsUsedUp;
}

bool Timeframe::hasRunLeft() const {
    return maxRuns_ == unlimited ||
           static_cast<std::uint32_t>(maxRuns_) >= static_cast<std::uint32_t>(runCounter_);
}

Timeframe::Closing Timeframe::checkExecution() {
    const Closing closed = closing();
    if (closed == Closing::None && executionTimeHasPassed()) {
        due_ = true;
        (void)updateExecutionTime(); // at the end of the span there is no next one
    }
    return closed;
}

bool Timeframe::isInPlan() const {
    const std::optional<LocalMoment> moment = LocalMoment::at(system_->time());
    return timePlan_ && moment && timePlan_->isActive(*moment);
}

bool Timeframe::updateExecutionTime() {
    const TimePoint next = executionTime_ + std::chrono::seconds(interval_);
    if (end_ < next)
        return true;
    executionTime_ = next;
    return false;
}

bool Timeframe::operator!=(const Timeframe& other) const {
    return start_ != other.start_ || end_ != other.end_ || mode_ != other.mode_ || text_ != other.text_ ||
           maxRuns_ != other.maxRuns_;
}

} // namespace orv::horad
