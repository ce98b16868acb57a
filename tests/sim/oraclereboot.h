#pragma once

#include "sim/oraclecalendar.h"
#include "sim/oraclewatch.h"

#include <array>
#include <cstdint>
#include <ctime>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace sim {

// Whether the router reboots when it is to, and only then.
class RebootWatch {
public:
    using Changes = orv::simulation::Tables::Changes;

    explicit RebootWatch(Watch& watch) : watch_(watch) {}

    void committed(const Changes& changes);
    void passed();
    void rebooted();

private:
    using Microseconds = orv::simulation::Machine::Microseconds;

    // The row of "AutoReboot".
    struct Settings {
        bool enabled = false;
        int weekDay = 0;
        std::string time;
        std::string lastReboot;
        std::uint32_t minimum = 0; // seconds of uptime, and since the last reboot

        bool hasSlotsOf(const Settings& other) const;
    };

    // A slot as it is watched from its first second on.
    struct SlotWatch {
        Microseconds entered = 0; // of the time that passes
        bool nothingAgainst = false;
    };

    struct Trigger {
        std::time_t at = 0;
        Microseconds clockAhead = 0;
    };

    void look();
    void takeSettings();
    void settle();
    void enterSlots(const Settings& settings, bool forSure);
    bool isInSlot(const WallTime& now) const;
    bool wasInSlotSince(std::time_t moment) const;
    bool mayLastRebootHold(const std::string& text, std::uint32_t minimum) const;
    bool doesLastRebootAllow(const std::string& text, std::uint32_t minimum) const;
    bool doesNothingHold() const;
    Microseconds clockAhead() const { return watch_.view.machine.now() - watch_.view.machine.passed(); }

    void judgeTrigger(const std::string& lastReboot);
    void judgeAlways();
    void judgeWrites();
    void judgeRepetition(std::uint32_t minimum);
    void judgePass();
    void watchSlot();
    void leaveSlot();

    Watch& watch_;
    std::optional<std::uint64_t> version_; // of the settings' table, when it was looked at last
    Settings settings_;
    unsigned unsettled_ = 0;           // settings that were seen since all was quiet
    std::set<std::uint32_t> minimums_; // one of them counts
    // The slots that horad may have, from Sunday on: those of other weekdays stay (C20).
    std::array<std::vector<DaySlot>, 7> slots_;
    bool slotsAreSure_ = true;
    bool lastRebootIsSure_ = true;

    // Since when it may be waiting for the end of a call.
    std::optional<std::time_t> waitsSince_;
    bool waitIsSure_ = false;

    bool triggered_ = false; // in this iteration
    bool ownCommit_ = false; // the settings changed by horad's own hand
    std::optional<Trigger> lastTrigger_;
    std::time_t clockAtPass_ = 0;
    Microseconds aheadAtPass_ = 0;

    std::time_t nearMinute_ = -1; // the beginning of the minute that was asked for last
    bool nearSlot_ = false;       // whether a part of it lies in a slot
    bool wasExactOutside_ = false;
    std::optional<SlotWatch> slot_;
};

} // namespace sim
