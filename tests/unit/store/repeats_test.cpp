#include "store/repeats.h"

#include <regex>
#include <string>

#include <gmock/gmock.h>

namespace {

using store::log::Repeats;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;

class RepeatsTest : public testing::Test {
protected:
    // The lines that an action logs, each from its level on.
    template <typename Action>
    static std::vector<std::string> linesOf(Action action) {
        testing::internal::CaptureStderr();
        action();
        std::istringstream log(testing::internal::GetCapturedStderr());
        std::vector<std::string> lines;
        for (std::string line; std::getline(log, line);)
            lines.push_back(std::regex_replace(line, std::regex("^[^ ]* "), ""));
        return lines;
    }

    Repeats repeats;
    const Repeats::TimePoint start{};
};

TEST_F(RepeatsTest, FirstLineGoesOutAtOnceAndNothingIsToWakeUpFor) {
    EXPECT_THAT(linesOf([&] { repeats.warn("refused 5", "refused (process 1)", start); }),
                ElementsAre("warning cfgserver: refused (process 1)"));
    EXPECT_FALSE(repeats.deadline().has_value());
    EXPECT_THAT(linesOf([&] { repeats.flush(start + 5min); }), IsEmpty());
}

TEST_F(RepeatsTest, LinesOfAKindAreCountedAndToldAtTheEndOfItsMinute) {
    const auto flood = [&] {
        for (int i = 0; i < 1000; ++i)
            repeats.warn("refused 5", "refused (process " + std::to_string(i) + ")", start + i * 50ms);
    };
    EXPECT_THAT(linesOf(flood), ElementsAre("warning cfgserver: refused (process 0)"));
    EXPECT_EQ(repeats.deadline(), start + 1min);
    EXPECT_THAT(linesOf([&] { repeats.flush(start + 1min - 1ms); }), IsEmpty());
    EXPECT_THAT(
        linesOf([&] { repeats.flush(start + 1min); }),
        ElementsAre("warning cfgserver: refused (process 999) (the last of 999 such lines within a minute)"));
    EXPECT_FALSE(repeats.deadline().has_value());
}

TEST_F(RepeatsTest, OneRepeatIsALineLikeAnyOther) {
    const auto twice = [&] {
        repeats.warn("refused 5", "refused (process 1)", start);
        repeats.warn("refused 5", "refused (process 2)", start + 1s);
        repeats.flush(start + 1min);
    };
    EXPECT_THAT(linesOf(twice), ElementsAre("warning cfgserver: refused (process 1)",
                                            "warning cfgserver: refused (process 2)"));
}

TEST_F(RepeatsTest, WhatGoesOnIsOneLineAMinute) {
    const auto anHour = [&] {
        for (int second = 0; second < 3600; ++second)
            repeats.warn("refused 5", "refused", start + second * 1s);
    };
    EXPECT_EQ(linesOf(anHour).size(), 60U);
}

TEST_F(RepeatsTest, KindIsForgottenAfterAQuietMinute) {
    const auto later = [&] {
        repeats.warn("refused 5", "first", start);
        repeats.warn("refused 5", "counted", start + 1s);
        repeats.flush(start + 1min);
        repeats.warn("refused 5", "after a quiet minute", start + 2min);
    };
    EXPECT_THAT(linesOf(later), ElementsAre("warning cfgserver: first", "warning cfgserver: counted",
                                            "warning cfgserver: after a quiet minute"));
}

TEST_F(RepeatsTest, KindsDoNotHideEachOther) {
    const auto two = [&] {
        repeats.warn("refused 5", "refused", start);
        repeats.error("full", "no space", start + 1s);
        repeats.error("full", "no space", start + 2s);
        repeats.error("full", "no space", start + 3s);
    };
    EXPECT_THAT(linesOf(two), ElementsAre("warning cfgserver: refused", "error cfgserver: no space"));
    EXPECT_EQ(repeats.deadline(), start + 1s + 1min);
    EXPECT_THAT(linesOf([&] { repeats.flush(start + 2min); }),
                ElementsAre("error cfgserver: no space (the last of 2 such lines within a minute)"));
}

TEST_F(RepeatsTest, KindsBeyondTheRoomCountAsOne) {
    const auto many = [&] {
        for (int user = 0; user < 100000; ++user)
            repeats.warn("refused " + std::to_string(user), "refused " + std::to_string(user), start);
    };
    EXPECT_EQ(linesOf(many).size(), Repeats::roomForKinds + 1);
    EXPECT_THAT(
        linesOf([&] { repeats.flush(start + 1min); }),
        ElementsAre("warning cfgserver: refused 99999 (the last of 99935 such lines within a minute)"));
}

TEST_F(RepeatsTest, AllThatIsCountedIsToldAtTheEnd) {
    (void)linesOf([&] {
        for (int i = 0; i < 3; ++i)
            repeats.warn("refused 5", "refused", start);
    });
    EXPECT_THAT(linesOf([&] { repeats.flushAll(); }),
                ElementsAre("warning cfgserver: refused (the last of 2 such lines within a minute)"));
    EXPECT_THAT(linesOf([&] { repeats.flushAll(); }), IsEmpty());
}

} // namespace
