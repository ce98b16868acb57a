#pragma once

#include "cfg/iconfigclient.h"
#include "log.h"
#include "orv/system.h"
#include "timeplan/timeframe.h"
#include "timeplan/timeplanflex.h"

#include <map>
#include <memory>
#include <optional>
#include <string>

namespace orv::horad {

// The values of "WindowMode".
enum WindowMode {
    InWindow = 1,
    InWindowAlias = 2,    // same as 1, C13: sic
    InWindowWhenIdle = 3, // only while the user's time plan is active and the system idle
};

// The seconds between two runs that fall due, as they are asked for; 0 stands for 180.
int repeatIntervalOf(unsigned asked);

// The time frames by their Id.
using Timeframes = std::map<int, std::unique_ptr<Timeframe>>;

// One reading of the table "TimeFrame", and of the user's time plan for the frames that start file transfers.
class TimeframeReader {
public:
    // `interval`: seconds between two runs that fall due. The frames go by the system's clock.
    TimeframeReader(cfg::common::IConfigClient& client, const Log& log, int interval, System& system)
        : client_(client), log_(log), interval_(interval), system_(system) {}

    // A row that can't be read, or whose mode is unknown, is left out. A frame has no plan where the plan's
    // table can't be read. Nothing where "TimeFrame" itself can't be.
    std::optional<Timeframes> read();
    // Whether everything that was asked for could be read.
    bool complete() const { return complete_; }

private:
    void readFrame(unsigned row, Timeframes& frames);
    std::shared_ptr<TimePlanFlex> planFor(const std::string& serviceTable);
    std::optional<TimePlanFlex> readUserTimePlan();
    void failUserTimePlan(const velta::protocol::EResultCode& why);
    void failTimeframes(const velta::protocol::EResultCode& why);

    cfg::common::IConfigClient& client_;
    const Log& log_;
    int interval_;
    System& system_;
    bool complete_ = true;
    bool userTimePlanRead_ = false;
    std::optional<TimePlanFlex> userTimePlan_; // the same for all frames
};

} // namespace orv::horad
