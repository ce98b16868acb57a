#include "support/kernelfiles.h"
#include "support/scripteduptime.h"
#include "tools/horactl/why.h"
#include "unit/horactl/forecasthouse.h"

#include <algorithm>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// Each condition of a frame and of the reboot from both sides, and which one of several decides.
namespace tools::horactl::testing {

using ::testing::HasSubstr;

namespace {

class WhyConditions : public ::testing::Test {
protected:
    struct Obstacle {
        const char* name;  // of the condition that it leaves unmet
        const char* about; // obstacles about the same thing can't be put up together
        std::function<void()> put;
        std::function<void()> most; // the most that may be there without being one; none for some
    };

    WhyConditions() {
        machine.setQuiet();
        question.real = true;
    }

    void change(const std::string& table, const char* column, const std::string& content) {
        velta::ValueList& stored = question.household.tables[table].front();
        stored = orv::simulation::with(stored, cellOf(stored, column, content));
    }
    // Why not, and whether a horad that starts now acts so.
    void expect(const std::string& subject, const std::string& decides, bool acts, const std::string& wrote,
                std::int64_t seconds) {
        const Explanation why = explain(question, subject);
        EXPECT_EQ(why.decides, decides);
        EXPECT_EQ(why.acts, acts) << decides;
        EXPECT_EQ(firstUnmet(why), acts ? "" : decides);
        Lines writes;
        Forecast forecast(question.household, {noon},
                          circumstancesOf(question, lineOf(question), LineRuns::GoesOn));
        record(forecast, writes);
        forecast.runUntil(noon + seconds);
        EXPECT_EQ(std::any_of(writes.begin(), writes.end(),
                              [&](const std::string& line) { return line.find(wrote) != std::string::npos; }),
                  acts)
            << decides;
    }
    // Each obstacle alone, beside the two that are asked next, and what is just none.
    void expectObstacles(const std::string& subject, const std::vector<Obstacle>& obstacles,
                         const std::string& wrote, std::int64_t seconds) {
        const Question free = question;
        const auto again = [&] {
            question = free;
            machine.setQuiet();
            uptime.set(longUp);
        };
        const std::string last = explain(question, subject).conditions.back().name;
        expect(subject, last, true, wrote, seconds);
        for (std::size_t i = 0; i < obstacles.size(); ++i) {
            if (obstacles[i].most) {
                obstacles[i].most();
                expect(subject, last, true, wrote, seconds);
                again();
            }
            for (std::size_t j = i; j < std::min(i + 3, obstacles.size()); ++j) {
                if (i != j && std::string(obstacles[i].about) == obstacles[j].about)
                    continue;
                obstacles[j].put();
                obstacles[i].put();
                expect(subject, obstacles[i].name, false, wrote, seconds);
                again();
            }
        }
    }

    static constexpr unsigned longUp = 100 * 86400; // seconds

    Question question = questionOf(quietHousehold());
    const KernelFiles machine;
    ScriptedUptime uptime{longUp};
    fakes::LocalZone zone{"UTC"};

private:
    static std::string firstUnmet(const Explanation& why) {
        for (const Condition& condition : why.conditions)
            if (!condition.met)
                return condition.name;
        return "";
    }
    static velta::ValueList cellOf(const velta::ValueList& stored, const char* column,
                                   const std::string& content) {
        velta::Value value(stored.getValue(column).type());
        if (value.type() == velta::Value::Text)
            value.setText(content);
        else
            value.setInteger(std::stoi(content));
        velta::ValueList cell;
        cell.add(column, value);
        return cell;
    }
};

class WhyFrame : public WhyConditions {
protected:
    // A horad that starts at noon looks at its frames four seconds later.
    static constexpr std::time_t look = noon + 4;

    WhyFrame() {
        add(question.household, "TimeFrame",
            {{"WindowMode", "3"},
             {"ServicetableId", "1"},
             {"TimeFrameStart", std::to_string(noon - hour)},
             {"TimeFrameEnd", std::to_string(noon + hour)},
             {"MaxRetries", "2"}});
        add(question.household, "FileTransfer", {});
    }

    void setService(const std::string& status, const std::string& result) {
        change("FileTransfer", "Status", status);
        change("FileTransfer", "Result", result);
    }
    // On Mondays, in whole hours.
    void allowFrom(const std::string& start, const std::string& end) {
        add(question.household, "FirmwareUpdateTimePlan",
            {{"Enable", "1"}, {"WeekDay", "1"}, {"StartTimeHour", start}, {"EndTimeHour", end}});
    }
};

TEST_F(WhyFrame, EachConditionIsAskedInItsTurn) {
    expectObstacles(
        "TimeFrame.1",
        {
            {"mode is known", "mode", [this] { change("TimeFrame", "WindowMode", "4"); },
             [this] { change("TimeFrame", "WindowMode", "2"); }},
            {"not succeeded", "service", [this] { setService("5", "0"); }, [this] { setService("5", "1"); }},
            {"not running", "service", [this] { setService("2", "0"); }, {}},
            {"not over", "end", [this] { change("TimeFrame", "TimeFrameEnd", std::to_string(look - 1)); },
             [this] { change("TimeFrame", "TimeFrameEnd", std::to_string(look)); }},
            {"has begun", "start",
             [this] { change("TimeFrame", "TimeFrameStart", std::to_string(look + 1)); },
             [this] { change("TimeFrame", "TimeFrameStart", std::to_string(look - 1)); }},
            {"a run is left", "runs", [this] { change("TimeFrame", "RunCounter", "3"); },
             [this] { change("TimeFrame", "RunCounter", "2"); }},
            {"due", "start", [this] { change("TimeFrame", "TimeFrameStart", std::to_string(look)); }, {}},
            {"line idle", "line", [this] { machine.setCalls("1"); }, {}},
            {"line idle", "line", [this] { machine.setStream(true); }, {}},
            {"user's time plan", "plan", [this] { allowFrom("13", "14"); },
             [this] { allowFrom("11", "13"); }},
            {"service can be started",
             "service",
             [this] { question.household.tables["FileTransfer"].clear(); },
             {}},
        },
        "FileTransfer.1 Status", 4);
}

TEST_F(WhyFrame, LineAndPlanAreNotAskedInTheOtherModes) {
    for (const char* const mode : {"1", "2"}) {
        change("TimeFrame", "WindowMode", mode);
        machine.setCalls("1");
        machine.setStream(true);
        allowFrom("13", "14");
        expect("TimeFrame.1", "service can be started", true, "FileTransfer.1 Status", 4);
    }
}

TEST_F(WhyFrame, OfAnotherServiceOnlyItsRowIsAsked) {
    change("TimeFrame", "Servicetable", "Backup");
    const std::pair<const char*, bool> cases[] = {{"0", true}, {"2", false}};
    for (const auto& [status, acts] : cases) {
        question.household.tables["Backup"] = {row("FileTransfer", 1, {{"Status", status}})};
        expect("TimeFrame.1", "service can be started", acts, "Backup.1 Status", 4);
    }
}

TEST_F(WhyFrame, ShowsEachValueWithItsLimit) {
    const Explanation why = explain(question, "TimeFrame.1");
    ASSERT_EQ(why.conditions.size(), 10U);
    EXPECT_EQ(why.conditions[3].value, "Mon 2026-03-02 12:00:04 UTC");
    EXPECT_EQ(why.conditions[3].limit, "until Mon 2026-03-02 13:00:00 UTC");
    EXPECT_EQ(why.conditions[4].limit, "from Mon 2026-03-02 11:00:00 UTC");
    EXPECT_EQ(why.conditions[5].value, "0 counted");
    EXPECT_EQ(why.conditions[5].limit, "up to 2");
    EXPECT_EQ(why.conditions[7].value, "idle");
    EXPECT_EQ(why.summary, "TimeFrame.1 starts FileTransfer.1 now");
    change("TimeFrame", "MaxRetries", "-1");
    EXPECT_EQ(explain(question, "TimeFrame.1").conditions[5].limit, "no limit");
}

TEST_F(WhyFrame, TellsTheNextStartWhereTimeAloneBringsIt) {
    change("TimeFrame", "WindowMode", "1");
    change("TimeFrame", "TimeFrameStart", std::to_string(noon + 600));
    EXPECT_EQ(explain(question, "TimeFrame.1").next, noon + 602); // behind its start
    change("TimeFrame", "TimeFrameEnd", std::to_string(noon - 1));
    EXPECT_EQ(explain(question, "TimeFrame.1").next, std::nullopt);
}

class WhyReboot : public WhyConditions {
protected:
    WhyReboot() {
        set(question.household, "AutoReboot",
            {{"Enable", "1"}, {"Time", "12:00"}, {"MinimumRuntime", "3600"}});
    }
};

TEST_F(WhyReboot, EachConditionIsAskedInItsTurn) {
    const auto setLast = [this](const std::string& text) { change("AutoReboot", "LastReboot", text); };
    expectObstacles(
        "reboot",
        {
            {"auto reboot is on", "enable", [this] { change("AutoReboot", "Enable", "0"); }, {}},
            {"a time is set", "time", [this] { change("AutoReboot", "Time", ""); }, {}},
            {"in the slot", "time", [this] { change("AutoReboot", "Time", "12:01"); },
             [this] { change("AutoReboot", "Time", "11:59:55"); }},
            {"in the slot", "day", [this] { change("AutoReboot", "WeekDay", "2"); },
             [this] { change("AutoReboot", "WeekDay", "1"); }},
            {"no call", "line", [this] { machine.setCalls("1"); }, [this] { machine.setStream(true); }},
            {"up for long enough", "uptime", [this] { uptime.set(3500); }, [this] { uptime.set(3600); }},
            {"last reboot long enough ago", "last", [&] { setLast("2026-03-02T11:30:00+0000"); },
             [&] { setLast("2026-03-02T10:59:59+0000"); }},
            // A clock that was wrong then holds nothing back.
            {"last reboot long enough ago", "last", [&] { setLast("2026-03-02T11:30:00+0000"); },
             [&] { setLast("2026-03-02T13:00:00+0000"); }},
        },
        "Reboot Trigger", 59);
}

TEST_F(WhyReboot, ShowsEachValueWithItsLimit) {
    change("AutoReboot", "WeekDay", "1");
    change("AutoReboot", "LastReboot", "2026-03-01T12:00:00+0000");
    uptime.set(7200);
    const Explanation why = explain(question, "reboot");
    ASSERT_EQ(why.conditions.size(), 6U);
    EXPECT_EQ(why.conditions[2].limit, "Mondays at 12:00, a minute long");
    EXPECT_EQ(why.conditions[4].value, "2 h");
    EXPECT_EQ(why.conditions[4].limit, "at least 1 h");
    EXPECT_EQ(why.conditions[5].value, "Sun 2026-03-01 12:00:00 UTC");
    EXPECT_EQ(why.summary, "The router would reboot now, within a minute");
    EXPECT_THAT(why.notes.front(), HasSubstr("exact to a minute only"));
}

TEST_F(WhyReboot, OfTablesFromElsewhereTheMachineDoesNotCount) {
    machine.setCalls("1");
    uptime.set(60);
    question.real = false;
    expect("reboot", "last reboot long enough ago", true, "Reboot Trigger", 59);
}

TEST_F(WhyReboot, TellsTheNextOneWhereTimeAloneBringsIt) {
    change("AutoReboot", "Time", "12:10");
    const std::optional<std::time_t> next = explain(question, "reboot").next;
    ASSERT_TRUE(next.has_value());
    EXPECT_GE(*next, noon + 10 * minute);
    EXPECT_LT(*next, noon + 11 * minute);
    change("AutoReboot", "Enable", "0");
    EXPECT_EQ(explain(question, "reboot").next, std::nullopt);
}

} // namespace

} // namespace tools::horactl::testing
