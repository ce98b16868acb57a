// A router has no clock of its own: until the network tells it the time it is anything, and then it jumps. No
// clock may make one reboot again and again.

#include "unit/handlers/rebootfixture.h"

#include <ctime>
#include <optional>

namespace {

using orv::horad::RebootHandler;
using orv::horad::TimePlanTime;

constexpr unsigned passInterval = 50;   // seconds
constexpr unsigned minimum = 5400;      // seconds
constexpr unsigned endOfMorning = 8000; // of uptime, in seconds

constexpr std::time_t today = 1795132800; // 2026-11-20 00:00:00 UTC
constexpr std::time_t tomorrow = today + secondsADay;
constexpr std::time_t in2037 = 2114380800;     // 2037-01-01 00:00:00
constexpr std::time_t in2040 = 2208988800;     // 2040-01-01 00:00:00
constexpr std::time_t past32Bits = 4294967296; // 2106-02-07 06:28:16

// From that uptime on the clock goes on from there.
struct Step {
    unsigned uptime;
    std::time_t clock;
};

using Steps = std::vector<Step>;

struct Morning {
    const char* what;
    const char* time; // of the reboot, on every day
    Steps steps;      // the first one at an uptime of 0
};

Steps standingStill(std::time_t clock) {
    Steps steps;
    for (unsigned uptime = 0; uptime <= endOfMorning; uptime += passInterval)
        steps.push_back({uptime, clock});
    return steps;
}

// Each has a pass in its slot before the router may reboot, and one after.
const Morning mornings[] = {
    {"1970, no network", "00:00:00", {{0, 0}, {6000, secondsADay - 100}}},
    {"1970, no network, half a minute before the slot", "00:00:30", {{0, 0}, {6000, secondsADay - 100}}},
    {"1970, the network finds it in the slot", "00:00:00", {{0, 0}, {90, today + 5}, {6000, tomorrow - 70}}},
    {"1970, the network finds it in the evening", "00:00:00", {{0, 0}, {90, tomorrow - 6000}}},
    {"1970, the network comes late", "00:00:00", {{0, 0}, {5390, tomorrow - 60}}},
    {"2037, no network", "00:00:00", {{0, in2037 - 50}, {7000, in2037 + secondsADay - 50}}},
    {"2037, and back", "00:00:00", {{0, in2037 - 50}, {300, tomorrow - 5500}}},
    {"2040, no network", "00:00:10", {{0, in2040}, {6000, in2040 + secondsADay - 40}}},
    {"2040, and back into the slot", "00:00:10", {{0, in2040}, {60, today + 20}, {5500, tomorrow}}},
    {"where 32 bits end", "06:28:00", {{0, past32Bits - 20}, {7000, past32Bits + secondsADay - 80}}},
    {"past 32 bits, and back before the slot",
     "06:28:00",
     {{0, past32Bits}, {400, today + 22000}, {5500, today + 23200}}},
    {"hours forward into the slot", "03:30:00", {{0, today}, {100, today + 12610}, {5300, tomorrow + 12500}}},
    {"hours back into the slot",
     "03:30:00",
     {{0, today + 12610}, {100, today + 19800}, {5350, today + 12601}, {7000, tomorrow + 12590}}},
    {"back into the slot time and again",
     "03:30:00",
     {{0, today + 12610},
      {1000, today + 12600},
      {2000, today + 12605},
      {4000, today + 12600},
      {5395, today + 12659},
      {6000, today + 12600},
      {7000, tomorrow + 12600}}},
    {"a clock that stands still in the slot", "03:30:00", standingStill(today + 12600)},
    {"a clock that stands still at its end", "03:30:00", standingStill(today + 12659)},
    {"1970, a clock that stands still", "00:00:00", standingStill(0)},
};

// What "LastReboot" has, and the moment that it counts as.
struct LastReboot {
    std::string text;
    std::optional<std::time_t> moment;
};

class RebootMornings : public RebootFixture {
protected:
    RebootMornings() { orv::horad::Logger::instance().setVerbose(false); }

    static std::time_t clockAt(const Steps& steps, unsigned uptime) {
        Step last = steps.front();
        for (const Step& step : steps)
            if (step.uptime <= uptime)
                last = step;
        return last.clock + (uptime - last.uptime);
    }

    static bool isInSlot(const Morning& morning, std::time_t now) {
        const TimePlanTime time(morning.time);
        const std::time_t begin = time.hour() * 3600 + time.minute() * 60 + time.second();
        return (now - begin) % secondsADay >= 0 && (now - begin) % secondsADay < 60;
    }

    // The uptime of the first pass in the slot from that uptime on; endOfMorning where there is none.
    static unsigned firstInSlot(const Morning& morning, unsigned from) {
        for (unsigned uptime = from; uptime < endOfMorning; uptime += passInterval)
            if (isInSlot(morning, clockAt(morning.steps, uptime)))
                return uptime;
        return endOfMorning;
    }

    // When the router has to reboot: not before it may.
    static unsigned expectedUptime(const Morning& morning, const LastReboot& last) {
        for (unsigned uptime = firstInSlot(morning, minimum); uptime < endOfMorning;
             uptime = firstInSlot(morning, uptime + passInterval)) {
            const std::time_t elapsed = clockAt(morning.steps, uptime) - last.moment.value_or(0);
            if (!last.moment || elapsed <= 0 || elapsed > static_cast<std::time_t>(minimum))
                return uptime;
        }
        return endOfMorning;
    }

    // Starts the router, and says at which uptime it reboots.
    unsigned uptimeAtReboot(const Morning& morning) {
        RebootHandler handler;
        (void)read(handler, "");
        setBusy(callEnds_ > 0);
        for (unsigned uptime = 0; uptime < endOfMorning; uptime += passInterval) {
            if (callEnds_ > 0 && uptime == callEnds_)
                setBusy(false);
            uptime_.set(uptime);
            clock_.set(clockAt(morning.steps, uptime));
            forget();
            handler.checkReboot(store_);
            if (!store_.writes().empty())
                return uptime;
        }
        return endOfMorning;
    }

    static std::vector<LastReboot> lastReboots(const Morning& morning) {
        const std::time_t start = clockAt(morning.steps, 0);
        const std::time_t early = clockAt(morning.steps, firstInSlot(morning, 0));
        const std::time_t due = clockAt(morning.steps, expectedUptime(morning, {}));
        return {{"", std::nullopt},
                {"yesterday", 0},
                {textOf(start).substr(0, 19), 0}, // without its offset
                {textOf(0), 0},
                {textOf(today - 20 * secondsADay), today - 20 * secondsADay},
                {textOf(past32Bits + 20 * secondsADay), past32Bits + 20 * secondsADay},
                {textOf(start), start},
                {textOf(early), early},
                {textOf(due), due},
                {textOf(due + 1), due + 1}};
    }

    unsigned callEnds_ = 0; // uptime in seconds, of a pass; 0 is no call
};

TEST_F(RebootMornings, NoClockRebootsARouterThatWasStartedLessThanTheMinimumAgo) {
    for (const Morning& morning : mornings)
        for (const LastReboot& last : lastReboots(morning)) {
            SCOPED_TRACE(std::string(morning.what) + ", last reboot '" + last.text + "'");
            set(RebootSettings().time(morning.time).lastReboot(last.text));
            const unsigned first = uptimeAtReboot(morning);
            EXPECT_EQ(first, expectedUptime(morning, last));
            ASSERT_LT(first, endOfMorning);
            // Up again it finds the same clock, and the moment that it wrote.
            const std::time_t written = clockAt(morning.steps, first);
            EXPECT_EQ(uptimeAtReboot(morning), expectedUptime(morning, {textOf(written), written}));
        }
}

TEST_F(RebootMornings, NeitherDoesACallThatEndsTooEarly) {
    for (const unsigned callEnds : {50u, 1000u, 5350u}) {
        callEnds_ = callEnds;
        for (const Morning& morning : mornings) {
            SCOPED_TRACE(std::string(morning.what) + ", a call of " + std::to_string(callEnds) + " s");
            set(RebootSettings().time(morning.time));
            const unsigned reboot = uptimeAtReboot(morning);
            EXPECT_GE(reboot, minimum);
            EXPECT_LE(reboot, expectedUptime(morning, {}));
        }
    }
}

TEST_F(RebootMornings, OnlyTheMinimumHoldsThemBack) {
    for (const Morning& morning : mornings) {
        SCOPED_TRACE(morning.what);
        ASSERT_LT(firstInSlot(morning, 0), minimum);
        set(RebootSettings().time(morning.time).minimumRuntime(0));
        EXPECT_EQ(uptimeAtReboot(morning), firstInSlot(morning, 0));
    }
}

TEST_F(RebootMornings, AnUptimeThatIsNotToBeHadNeverReboots) {
    uptime_.fail();
    for (const Morning& morning : mornings) {
        set(RebootSettings().time(morning.time));
        EXPECT_EQ(uptimeAtReboot(morning), endOfMorning) << morning.what;
    }
}

// Summer time.

struct Place {
    const char* zone;
    const char* rule;                 // the same without a zone file
    std::vector<std::time_t> moments; // in winter, in summer, in the first and the second pass of an hour
};

const Place places[] = {
    {"Europe/Berlin",
     "CET-1CEST,M3.5.0,M10.5.0/3",
     {1767268800, 1782907200, 1792890000 - 1800, 1792890000 - 30, 1792890000, 1792890000 + 1800}},
    {"America/New_York",
     "EST5EDT,M3.2.0,M11.1.0",
     {1767268800, 1782907200, 1793512800 - 1800, 1793512800 - 30, 1793512800, 1793512800 + 1800}},
    {"Australia/Lord_Howe",
     "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0",
     {1767268800, 1782907200, 1775314800 - 900, 1775314800 - 30, 1775314800, 1775314800 + 900}},
    {"Asia/Kolkata", "IST-5:30", {1767268800, 1782907200}},
};

class RebootSummertime : public RebootFixture {
protected:
    // Whose slot begins at that time of day.
    void setSlotAt(std::time_t moment) {
        std::tm local{};
        char text[16] = {};
        (void)localtime_r(&moment, &local);
        (void)std::strftime(text, sizeof text, "%T", &local);
        store_.set("AutoReboot", 0, {"Time", text});
    }

    // What a daemon that was just started says of a reboot at that time.
    std::string saidByANewOne(std::time_t now) {
        RebootHandler handler;
        setSlotAt(now);
        EXPECT_TRUE(read(handler));
        const Lines lines = passAt(handler, now);
        return lines.size() > 2 ? lines[2] : "";
    }
};

TEST_F(RebootSummertime, ALastRebootIsAsLongAgoAsItIs) {
    for (const Place& place : places)
        for (const char* zone : {place.zone, place.rule}) {
            zone_.set(zone);
            for (const std::time_t moment : place.moments) {
                SCOPED_TRACE(testing::Message() << zone << " at " << moment);
                RebootHandler handler;
                set(RebootSettings());
                setSlotAt(moment);
                ASSERT_TRUE(read(handler));
                ASSERT_TRUE(triggersAt(handler, moment));

                for (const unsigned later : {1u, 60u, 3600u, 5400u}) {
                    const std::time_t now = moment + static_cast<std::time_t>(later);
                    EXPECT_EQ(saidByANewOne(now), lastRebootOnly(later));
                    setSlotAt(now);
                    ASSERT_TRUE(read(handler));
                    EXPECT_EQ(passAt(handler, now).at(2), lastRebootOnly(later));
                }
                EXPECT_EQ(saidByANewOne(moment + 5401), allowed);
            }
        }
}

TEST_F(RebootSummertime, ASlotThatComesTwiceInTheNightRebootsOnce) {
    zone_.set("CET-1CEST,M3.5.0,M10.5.0/3");
    const std::time_t first = 1792890000 - 1800; // 2026-10-25 02:30:00+0200
    const std::time_t second = first + 3600;     // 2026-10-25 02:30:00+0100
    for (const bool rebooted : {false, true}) {
        SCOPED_TRACE(rebooted);
        RebootHandler handler;
        uptime_.set(longUptime);
        ASSERT_TRUE(read(handler, RebootSettings().time("02:30:00")));
        EXPECT_TRUE(triggersAt(handler, first));
        if (rebooted)
            uptime_.set(3540);
        EXPECT_FALSE(triggersAt(handler, second));
        EXPECT_EQ(log_.lines().at(2), rebooted ? uptimeOnly(3540) : lastRebootOnly(3600));
    }
}

TEST_F(RebootSummertime, ASlotThatTheNightSkipsComesOnTheNextDay) {
    zone_.set("CET-1CEST,M3.5.0,M10.5.0/3");
    const std::time_t change = 1774746000; // after 01:59:59 comes 03:00:00
    ASSERT_TRUE(read(handler_, RebootSettings().time("02:30:00")));
    for (std::time_t now = change - 7200; now < change + 7200; now += passInterval)
        EXPECT_FALSE(triggersAt(handler_, now)) << now;
    EXPECT_TRUE(triggersAt(handler_, change + secondsADay - 1800)); // 02:30:00 of the next day
}

} // namespace
