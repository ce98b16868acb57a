#include "repeats.h"

#include <chrono>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using orv::horad::LogLevel;
using orv::horad::LogOrigin;
using orv::horad::Repeats;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

class RepeatsTest : public testing::Test {
protected:
    void put(const std::string& text, Repeats::TimePoint now) { repeats_.put(error_, text.c_str(), now); }

    // So many times in the same moment.
    void putOften(int times, const std::string& text, Repeats::TimePoint now) {
        for (int i = 0; i < times; ++i)
            put(text, now);
    }

    // The lines since the last call, without their origins.
    std::vector<std::string> written() { return std::exchange(texts_, {}); }

    static const ORV_Sysloglevel_Modul* module(const char* name) {
        return ORV_Sysloglevel_registerModul(name);
    }

    const LogOrigin error_ = {LogLevel::Error, module("horad"), "log"};
    const Repeats::TimePoint start_ = Repeats::TimePoint(1h);
    std::vector<std::string> texts_;
    std::vector<LogOrigin> origins_;
    Repeats repeats_{[this](const LogOrigin& origin, const char* text) {
        origins_.push_back(origin);
        texts_.emplace_back(text);
    }};
};

TEST_F(RepeatsTest, ThirdEqualLineIsWrittenAndTheFourthCounted) {
    putOften(3, "lost", start_);
    EXPECT_THAT(written(), ElementsAre("lost", "lost", "lost"));
    put("lost", start_);
    EXPECT_THAT(written(), IsEmpty());
}

TEST_F(RepeatsTest, WhatCountsIsTheMinuteBeforeALine) {
    for (const auto when : {0s, 30s, 50s})
        put("lost", start_ + when);
    put("lost", start_ + 1min); // the first is a minute old
    EXPECT_THAT(written(), SizeIs(4));
    put("lost", start_ + 90s - 1ms); // the second is not yet
    EXPECT_THAT(written(), IsEmpty());
}

TEST_F(RepeatsTest, ThreeLinesAMinuteGoOnBeingWritten) {
    for (int i = 0; i < 100; ++i)
        put("lost", start_ + i * 20s);
    EXPECT_THAT(written(), SizeIs(100));
}

TEST_F(RepeatsTest, LinesThatGoOnAreToldOnceAMinute) {
    for (int second = 0; second < 10 * 60; ++second)
        put("lost", start_ + second * 1s);
    const std::vector<std::string> lines = written();
    ASSERT_THAT(lines, SizeIs(3 + 9));
    EXPECT_EQ(lines[3], "repeated 60 times: lost");
    EXPECT_EQ(lines.back(), "repeated 60 times: lost");
}

TEST_F(RepeatsTest, TellsAMinuteAfterTheFirstThatWasCounted) {
    putOften(3, "lost", start_);
    putOften(50, "lost", start_ + 10s);
    (void)written();
    repeats_.tell(start_ + 70s - 1ms);
    EXPECT_THAT(written(), IsEmpty());
    repeats_.tell(start_ + 70s);
    EXPECT_THAT(written(), ElementsAre("repeated 50 times: lost"));
    repeats_.tell(start_ + 10min);
    EXPECT_THAT(written(), IsEmpty());
}

TEST_F(RepeatsTest, AnotherLineTellsWhatIsDueToo) {
    putOften(4, "lost", start_);
    (void)written();
    put("other", start_ + 1min);
    EXPECT_THAT(written(), ElementsAre("repeated 1 time: lost", "other"));
}

TEST_F(RepeatsTest, AfterAQuietMinuteALineIsWrittenAgain) {
    putOften(5, "lost", start_);
    (void)written();
    putOften(4, "lost", start_ + 1min);
    EXPECT_THAT(written(), ElementsAre("repeated 2 times: lost", "lost", "lost", "lost"));
}

TEST_F(RepeatsTest, AlternatingLinesAreCountedEach) {
    for (int i = 0; i < 10; ++i) {
        put("lost", start_ + i * 100ms);
        put("connected", start_ + i * 100ms);
    }
    EXPECT_THAT(written(), ElementsAre("lost", "connected", "lost", "connected", "lost", "connected"));
    repeats_.tell(start_ + 2min);
    EXPECT_THAT(written(), ElementsAre("repeated 7 times: lost", "repeated 7 times: connected"));
}

TEST_F(RepeatsTest, LinesOfAnotherLevelOrModuleAreOthers) {
    const LogOrigin warning = {LogLevel::Warning, error_.module, error_.source};
    const LogOrigin other = {LogLevel::Error, module("timefrmhdl"), error_.source};
    for (const LogOrigin& origin : {error_, warning, other})
        for (int i = 0; i < 4; ++i)
            repeats_.put(origin, "lost", start_);
    EXPECT_THAT(written(), SizeIs(9));
    origins_.clear();
    repeats_.tell(start_ + 1min);
    EXPECT_THAT(written(), SizeIs(3));
    EXPECT_EQ(origins_[0].level, LogLevel::Error);
    EXPECT_EQ(origins_[1].level, LogLevel::Warning);
    EXPECT_EQ(origins_[1].module, error_.module);
    EXPECT_EQ(origins_[2].module, other.module);
}

TEST_F(RepeatsTest, EqualLinesOfTwoSourcesAreEqual) {
    const LogOrigin handlers = {error_.level, error_.module, "reboothandler"};
    putOften(2, "lost", start_);
    repeats_.put(handlers, "lost", start_);
    repeats_.put(handlers, "lost", start_);
    EXPECT_THAT(written(), SizeIs(3));
}

TEST_F(RepeatsTest, TextOfATellingIsCutLikeAnyOther) {
    putOften(4, std::string(orv::horad::logTextLimit, 'x'), start_);
    (void)written();
    repeats_.tellAll();
    EXPECT_THAT(written(), ElementsAre("repeated 1 time: " + std::string(1023 - 17, 'x')));
}

TEST_F(RepeatsTest, AllThatIsCountedIsToldAtTheEnd) {
    putOften(4, "lost", start_);
    putOften(53, "connected", start_);
    putOften(3, "other", start_);
    (void)written();
    repeats_.tellAll();
    EXPECT_THAT(written(), ElementsAre("repeated 1 time: lost", "repeated 50 times: connected"));
    repeats_.tellAll();
    EXPECT_THAT(written(), IsEmpty());
}

// Fills the memory with lines that are counted.
class FullRepeatsTest : public RepeatsTest {
protected:
    FullRepeatsTest() {
        for (std::size_t i = 0; i < Repeats::room; ++i)
            putOften(4, "line " + std::to_string(i), start_);
        (void)written();
    }
};

TEST_F(FullRepeatsTest, ALineThatFindsNoRoomIsWrittenAndNotCounted) {
    putOften(10, "late", start_ + Repeats::leastQuiet - 1ms);
    EXPECT_THAT(written(), AllOf(SizeIs(10), Each("late")));
    putOften(10, "line 0", start_ + Repeats::leastQuiet - 1ms);
    EXPECT_THAT(written(), IsEmpty());
}

TEST_F(FullRepeatsTest, ALineTakesThePlaceOfTheOneThatWasQuietTheLongest) {
    for (std::size_t i = 0; i < Repeats::room; ++i)
        if (i != 5)
            put("line " + std::to_string(i), start_ + 1s);
    putOften(4, "late", start_ + Repeats::leastQuiet);
    EXPECT_THAT(written(), ElementsAre("repeated 1 time: line 5", "late", "late", "late"));
    repeats_.tellAll();
    EXPECT_THAT(written(), AllOf(SizeIs(Repeats::room), Contains("repeated 2 times: line 63"),
                                 Contains("repeated 1 time: late")));
}

TEST_F(FullRepeatsTest, TellingsTakeTurnsAndLoseNothing) {
    repeats_.tell(start_ + 1min);
    EXPECT_THAT(written(), SizeIs(Repeats::tellingsAtFirst));
    repeats_.tell(start_ + 2min);
    EXPECT_THAT(written(), ElementsAre("repeated 1 time: line 30", "repeated 1 time: line 31"));
    repeats_.tell(start_ + 3min - 1ms);
    EXPECT_THAT(written(), IsEmpty());
    repeats_.tell(start_ + 3min);
    EXPECT_THAT(written(), SizeIs(2));
    repeats_.tellAll();
    EXPECT_THAT(written(), SizeIs(Repeats::room - Repeats::tellingsAtFirst - 4));
}

TEST_F(FullRepeatsTest, ThoseWhoWaitedTheLongestAreToldFirst) {
    repeats_.tell(start_ + 1min);
    putOften(3, "line 0", start_ + 1min); // written again: they are a minute later
    put("line 0", start_ + 1min);
    (void)written();
    for (int minute = 2; minute < 2 + 17; ++minute)
        repeats_.tell(start_ + minute * 1min);
    EXPECT_THAT(written(), AllOf(SizeIs(34), Not(Contains("repeated 1 time: line 0"))));
    repeats_.tell(start_ + 19min);
    EXPECT_THAT(written(), ElementsAre("repeated 1 time: line 0"));
}

TEST_F(RepeatsTest, ADayOfAlternatingLinesStaysReadable) {
    constexpr int kinds = 12;
    constexpr int rounds = 24 * 60 * 60 / 2;
    for (int round = 0; round < rounds; ++round)
        for (int kind = 0; kind < kinds; ++kind)
            put("kind " + std::to_string(kind), start_ + round * 2s);
    repeats_.tellAll();
    const std::vector<std::string> lines = written();
    EXPECT_LE(lines.size(), 3000U);
    std::map<std::string, int> counts;
    for (const std::string& line : lines) {
        const std::size_t text = line.find("kind ");
        counts[line.substr(text)] += text == 0 ? 1 : std::stoi(line.substr(line.find(' ')));
    }
    EXPECT_THAT(counts, AllOf(SizeIs(kinds), Each(testing::Pair(testing::_, rounds))));
}

} // namespace
