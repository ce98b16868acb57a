#pragma once

#include "handlers/timeframehandler.h"
#include "support/capturedlog.h"
#include "support/fakestore.h"
#include "support/kernelfiles.h"
#include "support/scriptedclock.h"
#include "support/scriptedsleep.h"

#include <ctime>
#include <string>
#include <vector>

#include <gtest/gtest.h>

inline constexpr std::time_t mondayNoon = 1704110400; // 2024-01-01 12:00:00 UTC
inline constexpr std::time_t hour = 3600;
inline constexpr int repeatInterval = 180;

// A row of "TimeFrame". One of which no more is said than its id starts the file transfer 10 from mondayNoon
// on, for an hour and without a limit.
class FrameRow {
public:
    explicit FrameRow(int id) : id_(id) {}

    FrameRow& mode(int mode) { return mode_ = mode, *this; }
    FrameRow& service(const char* table, int id) { return table_ = table, service_ = id, *this; }
    FrameRow& service(int id) { return service_ = id, *this; }
    FrameRow& start(std::time_t start) { return start_ = start, *this; }
    FrameRow& end(std::time_t end) { return end_ = end, *this; }
    FrameRow& message(const char* message) { return message_ = message, *this; }
    FrameRow& maxRetries(int maxRetries) { return maxRetries_ = maxRetries, *this; }
    FrameRow& runs(int runs) { return runs_ = runs, *this; }

    velta::ValueList row() const {
        return fakes::row({{"Id", id_},
                           {"WindowMode", mode_},
                           {"Servicetable", table_},
                           {"ServicetableId", service_},
                           {"TimeFrameStart", static_cast<unsigned>(start_)},
                           {"TimeFrameEnd", static_cast<unsigned>(end_)},
                           {"UserMessage", message_},
                           {"MaxRetries", maxRetries_},
                           {"RunCounter", static_cast<unsigned>(runs_)}});
    }

private:
    int id_;
    int mode_ = 1;
    std::string table_ = "FileTransfer";
    int service_ = 10;
    std::time_t start_ = mondayNoon;
    std::time_t end_ = mondayNoon + hour;
    std::string message_;
    int maxRetries_ = -1;
    int runs_ = 0;
};

// A row of "FirmwareUpdateTimePlan".
struct PlanWindow {
    int startHour;
    int startMinute;
    int endHour;
    int endMinute;
    int weekDay = 0;
    int enable = 1;
};

// A row of a service table.
struct ServiceRow {
    int id;
    int status;
    int result;
};

class TimeframeFixture : public testing::Test {
protected:
    using Operation = fakes::FakeStore::Operation;
    using Lines = std::vector<std::string>;
    using Handler = orv::horad::TimeframeHandler;

    TimeframeFixture() {
        setFrames({});
        setPlan({});
        setServices({{10, 0, 0}});
        store_.table("wexd") = {fakes::row({{"Enable", 0}})};
    }

    void setFrames(const std::vector<FrameRow>& frames) {
        store_.table("TimeFrame").clear();
        for (const FrameRow& frame : frames)
            store_.table("TimeFrame").push_back(frame.row());
    }

    void setServices(const std::vector<ServiceRow>& services, const char* table = "FileTransfer") {
        store_.table(table).clear();
        for (const ServiceRow& service : services)
            store_.table(table).push_back(
                fakes::row({{"Id", service.id}, {"Status", service.status}, {"Result", service.result}}));
    }

    void setPlan(const std::vector<PlanWindow>& windows) {
        store_.table("FirmwareUpdateTimePlan").clear();
        for (const PlanWindow& window : windows)
            store_.table("FirmwareUpdateTimePlan")
                .push_back(fakes::row({{"Enable", window.enable},
                                       {"WeekDay", window.weekDay},
                                       {"StartTimeHour", window.startHour},
                                       {"StartTimeMinute", window.startMinute},
                                       {"EndTimeHour", window.endHour},
                                       {"EndTimeMinute", window.endMinute}}));
    }

    // What one reading logs.
    Lines read(Handler& handler) {
        forget();
        (void)handler.configChanged(store_, "");
        return log_.lines();
    }

    // Brings the handler to where its next pass looks for frames that are due.
    void begin(Handler& handler) {
        (void)read(handler);
        handler.checkTimeframes(store_);
        forget();
    }

    void forget() {
        store_.clearJournal();
        log_.clear();
    }

    // What one pass writes.
    Lines pass(Handler& handler) {
        forget();
        handler.checkTimeframes(store_);
        return store_.writes();
    }

    // What one pass at that time writes.
    Lines passAt(Handler& handler, std::time_t now) {
        clock_.set(now);
        return pass(handler);
    }

    // Whether one pass at that time runs a frame. Its service stands as before afterwards.
    bool runsAt(Handler& handler, std::time_t now) {
        const fakes::FakeStore::Rows services = store_.table("FileTransfer");
        const bool ran = !passAt(handler, now).empty();
        store_.table("FileTransfer") = services;
        (void)handler.configChanged(store_, "FileTransfer");
        return ran;
    }

    static std::string started(int service, const std::string& table = "FileTransfer") {
        return "update " + table + " Id=" + std::to_string(service) + " Status=1(type 2)";
    }

    static std::string counted(int frame, unsigned runs) {
        return "update TimeFrame Id=" + std::to_string(frame) + " RunCounter=" + std::to_string(runs) +
               "(type 3)";
    }

    static constexpr const char* enabled = "write wexd 0 Enable=1(type 2)";

    // What the first run of a frame writes that alone runs its service.
    static Lines ran(int frame, int service = 10, unsigned runs = 1) {
        return {"start", started(service), enabled, counted(frame, runs), "close"};
    }

    fakes::LocalZone zone_{"UTC"};
    fakes::ScriptedClock clock_{mondayNoon + 1};
    ScriptedSleep sleep_;
    KernelFiles kernel_;
    fakes::FakeStore store_;
    fakes::CapturedLog log_;
    Handler handler_{0, true}; // every 180 s
};
