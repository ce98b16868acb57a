#pragma once

#include "handlers/timeplanhandler.h"
#include "log.h"
#include "support/capturedlog.h"
#include "support/fakestore.h"
#include "support/scriptedclock.h"

#include <ctime>
#include <list>
#include <string>
#include <vector>

#include <gtest/gtest.h>

// A row of a time plan table with a slot on Mondays. One of which no more is said than its id wants to be
// switched on at `mondayNoon`.
class PlanRow {
public:
    explicit PlanRow(int id) : id_(id) {}

    PlanRow& status(int status) { return status_ = status, *this; }
    PlanRow& activate(int activate) { return activate_ = activate, *this; }
    PlanRow& slot(const char* start, const char* stop) { return start_ = start, stop_ = stop, *this; }
    PlanRow& name(const char* name) { return name_ = name, *this; }

    velta::ValueList row() const {
        velta::ValueList values = fakes::row({{"Id", id_},
                                              {"TimePlanName", name_},
                                              {"TimePlanStatus", status_},
                                              {"Activate", activate_},
                                              {"StartMon", start_},
                                              {"StopMon", stop_}});
        for (const char* column : {"StartTue", "StopTue", "StartWed", "StopWed", "StartThu", "StopThu",
                                   "StartFri", "StopFri", "StartSat", "StopSat", "StartSun", "StopSun"})
            values.add(column, fakes::Cell(column, "00:00:00").value);
        return values;
    }

private:
    int id_;
    int status_ = 0;
    int activate_ = 1;
    std::string start_ = "08:00:00";
    std::string stop_ = "17:00:00";
    std::string name_ = "Kids";
};

class TimePlanFixture : public testing::Test {
protected:
    using Operation = fakes::FakeStore::Operation;
    using Lines = std::vector<std::string>;

    static constexpr std::time_t secondsADay = 86400;
    static constexpr std::time_t mondayNoon = 1704110400; // 2024-01-01 12:00:00 UTC
    static constexpr std::time_t mondayEvening = mondayNoon + 8 * 3600;

    TimePlanFixture() { orv::horad::Logger::instance().setVerbose(true); }
    ~TimePlanFixture() override { orv::horad::Logger::instance().setVerbose(false); }

    void setRows(const std::string& table, const std::vector<PlanRow>& plans) {
        store_.table(table).clear();
        for (const PlanRow& plan : plans)
            store_.table(table).push_back(plan.row());
    }

    // The table's changes are read, and what was asked of the store and logged so far is forgotten.
    void read(orv::horad::TimePlanHandler& handler, const std::string& table = "") {
        EXPECT_TRUE(handler.configChanged(store_, table));
        forget();
    }

    void forget() {
        store_.clearJournal();
        log_.clear();
    }

    // What one pass writes.
    Lines pass(orv::horad::TimePlanHandler& handler) {
        store_.clearJournal();
        handler.checkTimePlans(store_);
        return store_.writes();
    }

    static Lines switched(const std::string& table, const std::string& key, int status) {
        return {"start", update(table, key, status), "close"};
    }

    static std::string update(const std::string& table, const std::string& key, int status) {
        return "update " + table + " Id=" + key + " TimePlanStatus=" + std::to_string(status) + "(type 1)";
    }

    fakes::LocalZone zone_{"UTC"};
    fakes::ScriptedClock clock_{mondayNoon};
    fakes::FakeStore store_;
    fakes::CapturedLog log_;
    std::list<std::string> tables_{"Plans"};
};
