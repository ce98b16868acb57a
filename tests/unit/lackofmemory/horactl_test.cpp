// What a person asks horactl ends in "out of memory" where there is none left: see the end of its main().

#include "simulation/schema.h"
#include "support/capturedlog.h"
#include "support/scriptedclock.h"
#include "support/temporarydirectory.h"
#include "tools/horactl/check.h"
#include "tools/horactl/events.h"
#include "tools/horactl/next.h"
#include "tools/horactl/now.h"
#include "tools/horactl/simulate.h"
#include "tools/horactl/week.h"
#include "tools/horactl/weekbars.h"
#include "tools/horactl/weekhtml.h"
#include "tools/horactl/weeksvg.h"
#include "tools/horactl/why.h"
#include "unit/lackofmemory/expectations.h"

namespace {

using namespace tools::horactl;
using failingplaces::expectAnEnd;
using failingplaces::expectNoHarm;

constexpr std::time_t noon = 1772452800; // Mon 2026-03-02 12:00:00 UTC
constexpr std::int64_t minute = 60;
constexpr std::int64_t hour = 60 * minute;

// Something of everything.
constexpr const char* dump = R"({
    "WlanGlobals": {"WlanEnable": 1, "AlwaysEnable": 0},
    "WlanTimePlans": [
        {"Id": 1, "TimePlanName": "A name that is longer than a short one", "Activate": 1,
         "StartMon": "12:00:10", "StopMon": "13:30", "StartTue": "8:00", "StopTue": "10:00"},
        {"Id": 2, "TimePlanName": "Homework", "TimePlanStatus": 1, "Activate": 0,
         "StartMon": "12:10", "StopMon": "13:00", "StartWed": "2230", "StopWed": "23:00"}
    ],
    "TimePlans": [
        {"TimePlanName": "Another name that is longer than short", "StartMon": "12:20", "StopMon": "12:40"}
    ],
    "FileTransfer": [{"Id": 1, "Status": 0, "Result": 0}, {"Id": 2, "Status": 0, "Result": 0}],
    "FirmwareUpdateTimePlan": [
        {"Id": 1, "Enable": 1, "WeekDay": 1, "StartTimeHour": 12, "StartTimeMinute": 0, "EndTimeHour": 14}
    ],
    "TimeFrame": [
        {"Id": 1, "WindowMode": 1, "Servicetable": "FileTransfer", "ServicetableId": 1,
         "TimeFrameStart": 1772452860, "TimeFrameEnd": 1772456400, "UserMessage": "Update", "MaxRetries": 2},
        {"Id": 2, "WindowMode": 3, "Servicetable": "FileTransfer", "ServicetableId": 2,
         "TimeFrameStart": 1772452860, "TimeFrameEnd": 1772539200, "UserMessage": "Update at night"},
        {"Id": 3, "WindowMode": 1, "Servicetable": "SomeTableThatIsNotThere", "ServicetableId": 7,
         "TimeFrameStart": 1772452860, "TimeFrameEnd": 1772453000}
    ],
    "wexd": {"Enable": 1},
    "AutoReboot": {"Enable": 1, "WeekDay": 1, "Time": "12:30"},
    "Reboot": {"Trigger": 0}
})";

class HoractlWithoutMemory : public testing::Test {
protected:
    Household read() const {
        writeFile(path_, dump);
        tools::LoadSource source(path_);
        return readDump(source, {});
    }
    Question question(bool json = false) const {
        Question question;
        question.household = household;
        question.present = noon;
        question.width = 60;
        question.json = json;
        return question;
    }

    const TemporaryDirectory folder_;
    const std::string path_ = folder_.path("dump");
    fakes::LocalZone zone_{"UTC"};
    const Household household = read();
};

TEST_F(HoractlWithoutMemory, ReadsNoDump) {
    expectNoHarm([&] { return std::to_string(read().tables.size()); }, 40);
}

TEST_F(HoractlWithoutMemory, ForeseesNothing) {
    const auto events = [&] {
        Circumstances circumstances;
        circumstances.calls = {{noon + minute, noon + 2 * minute}};
        circumstances.service.outcome = Service::Outcome::Succeeds;
        Forecast forecast(household, {noon, 0}, circumstances);
        std::string text;
        for (const Event& event : nextEvents(forecast, noon, noon + hour, 100))
            text += std::to_string(event.time) + ' ' + event.why + '\n';
        return text;
    };
    expectNoHarm(events, 100);
}

TEST_F(HoractlWithoutMemory, SaysNotWhatIsNext) {
    expectNoHarm([&] { return nextCommand(question(), 10, hour); }, 100);
}

TEST_F(HoractlWithoutMemory, FindsNothing) {
    zone_.set("Europe/Berlin"); // whose clocks change
    Household checked = household;
    checked.tables["AutoReboot"] = {orv::simulation::findShape("AutoReboot")->newRow()}; // it takes weeks
    expectNoHarm([&] { return findingsAsText(check(checked, {noon, 0})); }, 40, 60);
}

TEST_F(HoractlWithoutMemory, ExplainsNothing) {
    for (const char* const subject : {"wlan", "reboot", "TimeFrame.1", "TimeFrame.2", "TimePlans.1"})
        expectNoHarm([&] { return whyCommand(question(), subject); }, 100);
}

TEST_F(HoractlWithoutMemory, DrawsNoWeek) {
    const WeekPicture picture = pictureOf(household, 0, noon, noon);
    BarStyle style;
    expectNoHarm([&] { return barsOf(picture, style); }, 100);
    style.utf8 = style.colours = true;
    expectNoHarm([&] { return barsOf(picture, style); }, 100);
    expectNoHarm([&] { return svgOf(picture); }, 100);
    expectNoHarm([&] { return htmlOf(picture); }, 100);
}

TEST_F(HoractlWithoutMemory, EndsWhereItMakesJson) {
    for (const char* const subject : {"wlan", "reboot", "TimeFrame.1", "TimePlans.1"})
        expectAnEnd([&] { return whyCommand(question(true), subject); }, 50, 300);
    expectAnEnd([&] { return nextCommand(question(true), 10, hour); }, 50, 300);
    expectAnEnd([&] { return nowCommand(question(true)); }, 50, 300);
    const std::vector<Finding> findings = {{"TimePlans.1", "StartMon", "2230", "no time of day", "22:30"},
                                           {"AutoReboot", "Time", "25:00", "never", "a time of day"}};
    expectAnEnd([&] { return findingsAsJson(findings); }, 10);
}

TEST_F(HoractlWithoutMemory, EndsItsSimulation) {
    for (const bool json : {false, true})
        expectAnEnd(
            [&] {
                const fakes::CapturedOutput output(STDOUT_FILENO);
                simulateCommand(question(json), noon, 10 * minute, {});
                return output.text();
            },
            50, 300);
}

} // namespace
