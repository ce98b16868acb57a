#include "simulation/machine.h"

#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using orv::simulation::Machine;

constexpr Machine::Microseconds second = Machine::second;

TEST(Machine, ClockAndUptimePassWithASleep) {
    Machine machine(1000 * second);
    machine.sleep(2'500'000);
    EXPECT_EQ(machine.time(), 1002);
    EXPECT_EQ(machine.now(), 1002 * second + 500'000);
    EXPECT_EQ(machine.uptime(), 2U);
    EXPECT_EQ(machine.passed(), 2'500'000);
}

TEST(Machine, SettingTheClockLeavesUptimeAndTimetable) {
    Machine machine(1000 * second);
    bool happened = false;
    machine.after(10 * second, [&] { happened = true; });
    machine.sleep(5'000'000);
    machine.setClock(77 * second);
    EXPECT_EQ(machine.time(), 77);
    EXPECT_EQ(machine.uptime(), 5U);
    machine.sleep(4'999'999);
    EXPECT_FALSE(happened);
    machine.sleep(1);
    EXPECT_TRUE(happened);
    EXPECT_EQ(machine.time(), 82);
}

TEST(Machine, ARestartBeginsTheUptimeAnewAndLeavesTheClock) {
    Machine machine(1000 * second);
    machine.sleep(7'000'000);
    machine.restart();
    machine.sleep(1'000'000);
    EXPECT_EQ(machine.uptime(), 1U);
    EXPECT_EQ(machine.time(), 1008);
}

TEST(Machine, WasStartedWhenItsUptimeSaysAndTheClockStays) {
    constexpr unsigned hundredDays = 100 * 86400;
    Machine machine(1000 * second);
    machine.sleep(7'000'000);
    machine.setUptime(hundredDays);
    EXPECT_EQ(machine.uptime(), hundredDays);
    machine.sleep(1'000'000);
    EXPECT_EQ(machine.uptime(), hundredDays + 1);
    EXPECT_EQ(machine.time(), 1008);
    EXPECT_EQ(machine.passed(), 8 * second);
    machine.restart();
    EXPECT_EQ(machine.uptime(), 0U);
}

TEST(Machine, EventsHappenInTheOrderOfTheirMomentsAndOfTheirComing) {
    Machine machine(0);
    std::string order;
    machine.at(2 * second, [&] { order += 'c'; });
    machine.at(1 * second, [&] { order += 'a'; });
    machine.at(1 * second, [&] { order += 'b'; });
    machine.at(3 * second, [&] { order += 'd'; });
    machine.passUntil(2 * second);
    EXPECT_EQ(order, "abc");
}

TEST(Machine, AnEventSeesItsOwnMoment) {
    Machine machine(500 * second);
    std::time_t seen = 0;
    machine.after(3 * second, [&] { seen = machine.time(); });
    machine.sleep(10'000'000);
    EXPECT_EQ(seen, 503);
    EXPECT_EQ(machine.time(), 510);
}

TEST(Machine, WhatIsDueAlreadyHappensNext) {
    Machine machine(0);
    machine.sleep(5'000'000);
    Machine::Microseconds seen = -1;
    machine.at(1 * second, [&] { seen = machine.passed(); });
    machine.passUntilNextEvent(9 * second);
    EXPECT_EQ(seen, 5 * second);
    EXPECT_EQ(machine.passed(), 5 * second);
}

TEST(Machine, AnEventMayPutOthersOnTheTimetable) {
    Machine machine(0);
    std::vector<Machine::Microseconds> seen;
    machine.after(1 * second, [&] {
        seen.push_back(machine.passed());
        machine.after(1 * second, [&] { seen.push_back(machine.passed()); });
    });
    machine.passUntil(5 * second);
    EXPECT_EQ(seen, (std::vector<Machine::Microseconds>{1 * second, 2 * second}));
}

TEST(Machine, AnEventMayWaitItself) {
    Machine machine(0);
    std::string order;
    machine.at(2 * second, [&] { order += 'b'; });
    machine.at(1 * second, [&] {
        machine.sleep(4'000'000);
        order += 'a';
    });
    machine.passUntil(3 * second);
    EXPECT_EQ(order, "ba");
    EXPECT_EQ(machine.passed(), 5 * second);
}

TEST(Machine, AnEventThatThrowsIsOver) {
    Machine machine(0);
    machine.after(1 * second, [] { throw std::runtime_error("power cut"); });
    EXPECT_THROW(machine.sleep(2'000'000), std::runtime_error);
    EXPECT_EQ(machine.passed(), 1 * second);
    EXPECT_NO_THROW(machine.sleep(2'000'000));
}

TEST(Machine, TimeDoesNotPassBackwards) {
    Machine machine(0);
    machine.sleep(5'000'000);
    machine.passUntil(1 * second);
    EXPECT_EQ(machine.passed(), 5 * second);
}

} // namespace
