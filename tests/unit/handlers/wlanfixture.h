#pragma once

#include "handlers/wlanhandler.h"
#include "log.h"
#include "support/capturedlog.h"
#include "support/fakestore.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

struct WlanPlan {
    int activate;
    int status;
};

using WlanPlans = std::vector<WlanPlan>;

class WlanFixture : public testing::Test {
protected:
    using Operation = fakes::FakeStore::Operation;
    using Lines = std::vector<std::string>;

    WlanFixture() {
        orv::horad::Logger::instance().setVerbose(true);
        setGlobals(0, 0);
        setPlans({});
    }
    ~WlanFixture() override { orv::horad::Logger::instance().setVerbose(false); }

    void setGlobals(int wlanEnable, int alwaysEnable) {
        store_.table("WlanGlobals") = {
            fakes::row({{"WlanEnable", wlanEnable}, {"AlwaysEnable", alwaysEnable}})};
    }

    void setPlans(const WlanPlans& plans) {
        store_.table("WlanTimePlans").clear();
        for (const WlanPlan& plan : plans)
            store_.table("WlanTimePlans")
                .push_back(fakes::row({{"Activate", plan.activate}, {"TimePlanStatus", plan.status}}));
    }

    bool read(const std::string& table = "") {
        const bool result = handler_.configChanged(store_, table);
        forget();
        return result;
    }

    void forget() {
        store_.clearJournal();
        log_.clear();
    }

    // What one process() asks of the store.
    Lines act() {
        store_.clearJournal();
        handler_.process(store_);
        return store_.journal();
    }

    static Lines switched(int on) {
        return {"start", "write WlanGlobals 0 WlanEnable=" + std::to_string(on) + "(type 1)", "close"};
    }

    fakes::FakeStore store_;
    fakes::CapturedLog log_;
    orv::horad::WlanHandler handler_;
};
