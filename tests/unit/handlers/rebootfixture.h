#pragma once

#include "handlers/reboothandler.h"
#include "log.h"
#include "support/capturedlog.h"
#include "support/fakestore.h"
#include "support/kernelfiles.h"
#include "support/scriptedclock.h"
#include "support/scriptedsleep.h"
#include "support/scripteduptime.h"

#include <ctime>
#include <string>
#include <vector>

#include <gtest/gtest.h>

inline constexpr std::time_t secondsADay = 86400;
inline constexpr std::time_t monday = 1704067200;                  // 2024-01-01 00:00:00 UTC
inline constexpr std::time_t slotBegin = monday + 3 * 3600 + 1800; // 03:30:00
inline constexpr std::time_t slotEnd = slotBegin + 59;             // its last second
inline constexpr std::time_t insideSlot = slotBegin + 10;          // 03:30:10
inline constexpr std::time_t outsideSlot = slotBegin + 2 * 3600;   // 05:30:00
inline constexpr std::time_t nextSlot = insideSlot + secondsADay;  // on Tuesday
inline constexpr unsigned longUptime = 1000000;

// The row of "AutoReboot". One of which no more is said reboots at 03:30:00 on every day, after 5400 s, and
// never did before.
class RebootSettings {
public:
    RebootSettings& enable(int enable) { return enable_ = enable, *this; }
    RebootSettings& weekDay(int weekDay) { return weekDay_ = weekDay, *this; }
    RebootSettings& time(const std::string& time) { return time_ = time, *this; }
    RebootSettings& lastReboot(const std::string& text) { return lastReboot_ = text, *this; }
    RebootSettings& minimumRuntime(int seconds) { return minimumRuntime_ = seconds, *this; }

    velta::ValueList row() const {
        return fakes::row({{"Enable", enable_},
                           {"WeekDay", weekDay_},
                           {"Time", time_},
                           {"LastReboot", lastReboot_},
                           {"MinimumRuntime", minimumRuntime_}});
    }

private:
    int enable_ = 1;
    int weekDay_ = 0;
    std::string time_ = "03:30:00";
    std::string lastReboot_;
    int minimumRuntime_ = 5400;
};

// An idle router that has been running for long, inside the slot of the settings that stand in its store. The
// handler has not read them.
class RebootFixture : public testing::Test {
protected:
    using Operation = fakes::FakeStore::Operation;
    using Lines = std::vector<std::string>;
    using Handler = orv::horad::RebootHandler;

    RebootFixture() {
        orv::horad::Logger::instance().setVerbose(true);
        set(RebootSettings());
        store_.table("Reboot") = {fakes::row({{"Trigger", 0}})};
    }
    ~RebootFixture() override { orv::horad::Logger::instance().setVerbose(false); }

    void set(const RebootSettings& settings) { store_.table("AutoReboot") = {settings.row()}; }

    bool read(Handler& handler, const std::string& table = "AutoReboot") {
        forget();
        return handler.configChanged(store_, table);
    }

    bool read(Handler& handler, const RebootSettings& settings) {
        set(settings);
        return read(handler);
    }

    void forget() {
        store_.clearJournal();
        log_.clear();
    }

    // What one pass logs.
    Lines pass(Handler& handler) {
        forget();
        handler.checkReboot(store_);
        return log_.lines();
    }

    // What one pass at that time logs.
    Lines passAt(Handler& handler, std::time_t now) {
        clock_.set(now);
        return pass(handler);
    }

    // Whether one pass at that time writes the command.
    bool triggersAt(Handler& handler, std::time_t now) {
        (void)passAt(handler, now);
        return !store_.writes().empty();
    }

    // Whether that time is in the handler's slot. Leaves it without anything scheduled. Not for a handler
    // that waits, and not where a minimum of 0 lets a router reboot that was just started.
    bool isDueAt(Handler& handler, std::time_t now) {
        const unsigned uptime = uptime_.seconds();
        uptime_.set(0);
        const Lines lines = passAt(handler, now);
        uptime_.set(uptime);
        return lines == refused(now, {idle, uptimeOnly(0)});
    }

    void setBusy(bool call) const { kernel_.setCalls(call ? "1" : "0"); }

    // A moment in UTC as the handler writes it.
    static std::string textOf(std::time_t moment) {
        char text[64] = {};
        std::tm utc{};
        (void)gmtime_r(&moment, &utc);
        (void)std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S+0000", &utc);
        return text;
    }

    static constexpr const char* idle = "debug horad: System is idle, continue with auto reboot.";
    static constexpr const char* nowIdle = "debug horad: System is now idle, continue with auto reboot.";
    static constexpr const char* busy = "info horad: System is not idle => try reboot later.";
    static constexpr const char* stillBusy = "debug horad: System is still not idle => try reboot later.";
    static constexpr const char* allowed = "debug horad: Reboot allowed, continue with auto reboot.";
    static constexpr const char* postponed =
        "info horad: System never became idle, postpone auto reboot to next scheduled time.";

    static std::string waited(const std::string& seconds) {
        return "debug horad: Still waiting for system idle, waited " + seconds + " seconds so far.";
    }
    static std::string uptimeOnly(unsigned seconds) {
        return "debug horad: Uptime is only " + std::to_string(seconds) + " seconds, skipping reboot.";
    }
    static std::string lastRebootOnly(unsigned seconds) {
        return "debug horad: Last auto reboot was only " + std::to_string(seconds) +
               " seconds ago, skipping reboot.";
    }

    // What a pass logs that does not trigger; `decision` stands in the middle.
    static Lines refused(std::time_t now, const Lines& decision = {}) {
        Lines lines = decided(now, decision);
        lines.push_back("debug horad: No auto reboot scheduled for now  (" + textOf(now) + ") ");
        return lines;
    }

    // What one logs that triggers.
    static Lines triggered(std::time_t now, const char* systemIsIdle = idle) {
        Lines lines = decided(now, {systemIsIdle, allowed});
        lines.push_back("info horad: Trigger auto reboot now at '" + textOf(now) + "'");
        return lines;
    }

    // What both begin with.
    static Lines decided(std::time_t now, const Lines& decision) {
        Lines lines = {"debug horad: process"};
        lines.insert(lines.end(), decision.begin(), decision.end());
        lines.push_back("debug horad: Current time is '" + textOf(now) + "'");
        return lines;
    }

    static constexpr const char* triggerWritten = "write Reboot 0 Trigger=1(type 2)";

    static std::string momentWritten(const std::string& text) {
        return "write AutoReboot 0 LastReboot=" + text + "(type 4)";
    }

    fakes::LocalZone zone_{"UTC"};
    fakes::ScriptedClock clock_{insideSlot};
    ScriptedUptime uptime_{longUptime};
    ScriptedSleep sleep_;
    KernelFiles kernel_;
    fakes::FakeStore store_;
    fakes::CapturedLog log_;
    Handler handler_;
};
