#include "handlers/timeframedecision.h"

#include "handlers/timeframereader.h"

namespace orv::horad {

namespace {

TimeframeObstacle obstacleOf(Timeframe::Closing closing) {
    switch (closing) {
    case Timeframe::Closing::None:
        return TimeframeObstacle::None;
    case Timeframe::Closing::Over:
        return TimeframeObstacle::Over;
    case Timeframe::Closing::NotBegun:
        return TimeframeObstacle::NotBegun;
    case Timeframe::Closing::RunsUsedUp:
        return TimeframeObstacle::RunsUsedUp;
    }
    return TimeframeObstacle::None;
}

// Of a frame that is due. The line is looked at in every mode. C15: sic
TimeframeObstacle obstacleOfRun(const Timeframe& frame, TimeframeSituation& situation) {
    const bool idle = situation.isIdle();
    if (frame.mode() != InWindowWhenIdle)
        return TimeframeObstacle::None;
    if (!idle)
        return TimeframeObstacle::LineBusy;
    return frame.isInPlan() ? TimeframeObstacle::None : TimeframeObstacle::OutsidePlan;
}

} // namespace

TimeframeObstacle obstacleOf(Timeframe& frame, ServiceState state, TimeframeSituation& situation) {
    if (state == ServiceState::Succeeded)
        return TimeframeObstacle::Succeeded;
    const TimeframeObstacle closed = obstacleOf(frame.checkExecution());
    if (state == ServiceState::Running)
        return TimeframeObstacle::Running;
    if (closed != TimeframeObstacle::None)
        return closed;
    if (!frame.isDue())
        return TimeframeObstacle::NotDue;
    frame.clearDue();
    situation.dueTaken();
    return obstacleOfRun(frame, situation);
}

} // namespace orv::horad
