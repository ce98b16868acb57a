#pragma once

#include "handlers/servicestates.h"
#include "timeplan/timeframe.h"

#include <cstdint>

namespace orv::horad {

// What keeps a frame from starting its service, in the order in which a pass asks.
enum class TimeframeObstacle : std::uint8_t {
    None,        // the service is to be started
    Succeeded,   // the service has, and never runs again
    Running,     // the service is
    Over,        // the present is behind the frame's span
    NotBegun,    // or before it
    RunsUsedUp,  // the limit of the frame's runs
    NotDue,      // its next execution time has not passed
    LineBusy,    // a call or a stream, for a frame that waits for an idle line
    OutsidePlan, // the user's plan, for such a frame
};

// What the decision asks of its surroundings, and tells them. It asks only what it needs: looking at the line
// reads files.
class TimeframeSituation {
public:
    virtual ~TimeframeSituation() = default;

    // The frame was due and is no more: whatever comes of it, the next try waits for the next execution time.
    virtual void dueTaken() = 0;
    // Whether there is no call and no stream. Asked behind dueTaken(), whatever the frame's mode. C15: sic
    virtual bool isIdle() = 0;
};

// What stops the frame in a pass that is made now. It lets the frame fall due, and takes what was due. state:
// that of the frame's service.
[[nodiscard]] TimeframeObstacle obstacleOf(Timeframe& frame, ServiceState state,
                                           TimeframeSituation& situation);

} // namespace orv::horad
