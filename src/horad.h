#pragma once

#include "cfg/iconfigclient.h"
#include "cfg/iconfighandler.h"
#include "handlers/reboothandler.h"
#include "handlers/timeframehandler.h"
#include "handlers/timeplanhandler.h"
#include "handlers/wlanhandler.h"
#include "orv/system.h"

#include <cstdint>
#include <functional>
#include <list>
#include <string>

namespace orv::horad {

// The store as one iteration of the loop meets it: over its socket, or in memory.
class StoreLink {
public:
    virtual ~StoreLink() = default;

    // Waits for notices of changes, for up to so many milliseconds.
    virtual void wait(unsigned milliseconds) = 0;
    // Tells the handlers what has changed.
    virtual void deliver() = 0;
    // Runs a handler's pass. What it could not commit is read again.
    virtual void pass(const std::function<void(cfg::common::IConfigClient&)>& run) = 0;
    // For what counts as done whether it could be committed or not.
    virtual cfg::common::IConfigClient& client() = 0;
};

// The daemon's work: the four handlers, and what one iteration of the loop does with them.
class Horad {
public:
    using Register = std::function<void(cfg::IConfigHandler*)>;

    // The tables of the generic time plans; seconds between two runs of a service, 0 for the default; whether
    // debug lines are logged. Each handler is registered, in the order in which changes are delivered to
    // them; whoever they are registered with tells them of nothing any more when this object is gone. The
    // system outlives it.
    Horad(std::list<std::string>& tables, unsigned repeatDelay, bool verbose, const Register& registerHandler,
          System& system = System::real());

    void iterate(StoreLink& store);

    // What people want to know first, as a constant text: "WLAN on". Null where the tables don't have the
    // plans of the WLAN among them, or where its state is not known yet.
    const char* status() const { return followsWlan_ ? wlan_.status() : nullptr; }

private:
    WlanHandler wlan_;
    TimePlanHandler timePlans_;
    TimeframeHandler timeframes_;
    RebootHandler reboot_;
    bool followsWlan_;
    std::uint32_t iteration_ = 0;
};

} // namespace orv::horad
