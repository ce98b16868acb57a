#include "support/capturedlog.h"
#include "support/scriptedclock.h"
#include "support/temporarydirectory.h"
#include "tools/horactl/localtime.h"
#include "tools/horactl/setting.h"

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <list>
#include <optional>
#include <string>
#include <vector>

#include <getopt.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using namespace tools::horactl;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using Words = std::vector<std::string>;

// The kernel's files of a machine, and the folder of its store.
class FakeMachine {
public:
    FakeMachine() {
        for (const char* folder : {"proc", "store", "run"})
            std::filesystem::create_directory(folder_.path(folder));
        writeFile(folder_.path("proc/uptime"), "12345.67 54321.00\n");
        std::filesystem::create_directory(folder_.path("proc/self"));
        std::filesystem::create_directory(folder_.path("proc/1"));
        addProcess(2, "kthreadd", {});
        addProcess(77, "horadish", {"horad", "-t", "Wrong"});
    }

    void addProcess(int pid, const std::string& name, const Words& arguments) {
        std::filesystem::create_directory(file(pid, ""));
        writeFile(file(pid, "comm"), name + '\n');
        writeFile(file(pid, "cmdline"), withZeros(arguments));
        writeFile(file(pid, "environ"), "");
    }
    void addHorad(int pid, const Words& arguments, const Words& environment = {}) {
        addProcess(pid, "horad", arguments);
        writeFile(file(pid, "environ"), withZeros(environment));
    }
    void sealEnvironment(int pid) { std::filesystem::remove(file(pid, "environ")); }
    void setPidFile(const std::string& text) { writeFile(places().pidFile, text); }
    // The process's root of the tree, in which the store's folder is this one.
    void setRoot(int pid, const std::string& storeFolder) {
        const std::string root = folder_.path("root" + std::to_string(pid));
        const std::filesystem::path place = root + places().storeFolder;
        std::filesystem::create_directories(place.parent_path());
        std::filesystem::create_symlink(storeFolder, place);
        std::filesystem::create_symlink(root, file(pid, "root"));
    }

    std::string path(const std::string& name) const { return folder_.path(name); }
    std::string file(int pid, const std::string& name) const {
        return folder_.path("proc/" + std::to_string(pid) + '/' + name);
    }
    SettingPlaces places() const {
        return {folder_.path("proc"), folder_.path("run/horad"), folder_.path("store")};
    }
    Setting find(const GivenSetting& given = {}) const { return findSetting(given, places()); }

private:
    static std::string withZeros(const Words& words) {
        std::string text;
        for (const std::string& word : words)
            text += word + '\0';
        return text;
    }

    TemporaryDirectory folder_;
};

TEST(Setting, IsThatOfTheHoradThatRuns) {
    const fakes::LocalZone zone("Asia/Tokyo");
    FakeMachine machine;
    machine.addHorad(1234, {"/usr/sbin/horad", "-d", "-t", "WlanTimePlans", "-t", "TimePlans", "-r", "60"},
                     {"PATH=/bin", "TZ=Europe/Berlin", "XTZ=UTC"});
    const Setting setting = machine.find();
    EXPECT_THAT(setting.tables, ElementsAre("WlanTimePlans", "TimePlans"));
    EXPECT_EQ(setting.repeatDelay, 60u);
    EXPECT_EQ(setting.zone, "Europe/Berlin");
    EXPECT_EQ(setting.origin, "as horad 1234 runs: -t WlanTimePlans -t TimePlans, a repeat delay of 60 s, "
                              "TZ Europe/Berlin");
}

TEST(Setting, IsReadAsTheDaemonReadsItsCommandLine) {
    struct Case {
        Words arguments;
        std::list<std::string> tables;
        std::uint32_t repeatDelay;
    };
    const Case cases[] = {
        {{"horad", "-tA"}, {"A"}, 0},
        {{"horad", "word", "--table=A", "--tab", "B", "-t", "A"}, {"A", "B", "A"}, 0},
        {{"horad", "-dvt", "A", "-r", "abc"}, {"A"}, 0},
        {{"horad", "-t", "A", "-r", "-5"}, {"A"}, 4294967291},
        {{"horad", "-t", "A", "--repeatdelay", "99999999999"}, {"A"}, 4294967295},
        {{"horad", "-t", "", "-t", "-d"}, {"", "-d"}, 0},
        {{"horad", "-t", "A", "--", "-t", "B"}, {"A"}, 0},
    };
    for (const Case& given : cases) {
        FakeMachine machine;
        machine.addHorad(5, given.arguments);
        const Setting setting = machine.find();
        EXPECT_EQ(setting.tables, given.tables) << setting.origin;
        EXPECT_EQ(setting.repeatDelay, given.repeatDelay) << setting.origin;
    }
}

TEST(Setting, WithoutAHoradIsThatOfTheMachine) {
    const fakes::LocalZone zone("UTC");
    unsetenv("TZ");
    const Setting setting = FakeMachine().find();
    EXPECT_THAT(setting.tables, IsEmpty());
    EXPECT_EQ(setting.repeatDelay, 0u);
    EXPECT_EQ(setting.zone, ":/etc/localtime");
    EXPECT_EQ(setting.origin,
              "no horad runs here: all plan tables, a repeat delay of 180 s, this machine's time zone");
}

TEST(Setting, WithoutAHoradKeepsTheZoneOfTheCaller) {
    const fakes::LocalZone zone("Asia/Tokyo");
    const Setting setting = FakeMachine().find();
    EXPECT_EQ(setting.zone, "Asia/Tokyo");
    EXPECT_EQ(setting.origin, "no horad runs here: all plan tables, a repeat delay of 180 s, TZ Asia/Tokyo");
}

TEST(Setting, WithoutTheKernelsFilesIsThatOfTheMachine) {
    const fakes::LocalZone zone("Asia/Tokyo");
    const Setting setting = findSetting({}, {"/nowhere/proc", "/nowhere/horad", "/nowhere/tmp"});
    EXPECT_EQ(setting.origin, "no horad runs here: all plan tables, a repeat delay of 180 s, TZ Asia/Tokyo");
}

TEST(Setting, WhatIsGivenWins) {
    const fakes::LocalZone zone("Asia/Tokyo");
    FakeMachine machine;
    machine.addHorad(1234, {"horad", "-t", "A", "-r", "60"}, {"TZ=Europe/Berlin"});
    struct Case {
        GivenSetting given;
        std::list<std::string> tables;
        std::uint32_t repeatDelay;
        const char* origin;
    };
    const Case cases[] = {
        {{{"X", "Y"}, std::nullopt},
         {"X", "Y"},
         60,
         "given: -t X -t Y; as horad 1234 runs: a repeat delay of 60 s, TZ Europe/Berlin"},
        {{{}, 7}, {"A"}, 7, "given: a repeat delay of 7 s; as horad 1234 runs: -t A, TZ Europe/Berlin"},
        {{{}, 0}, {"A"}, 0, "given: a repeat delay of 180 s; as horad 1234 runs: -t A, TZ Europe/Berlin"},
        {{{"X"}, 7}, {"X"}, 7, "given: -t X, a repeat delay of 7 s; as horad 1234 runs: TZ Europe/Berlin"},
    };
    for (const Case& given : cases) {
        const Setting setting = machine.find(given.given);
        EXPECT_EQ(setting.tables, given.tables);
        EXPECT_EQ(setting.repeatDelay, given.repeatDelay);
        EXPECT_EQ(setting.zone, "Europe/Berlin");
        EXPECT_EQ(setting.origin, given.origin);
    }
    EXPECT_EQ(FakeMachine().find({{"X"}, 7}).origin,
              "given: -t X, a repeat delay of 7 s; no horad runs here: TZ Asia/Tokyo");
}

TEST(Setting, OfAHoradWithoutTZIsTheMachinesZoneWhateverTheCallersIs) {
    const fakes::LocalZone zone("Asia/Tokyo");
    FakeMachine machine;
    machine.addHorad(8, {"horad", "-t", "A"}, {"PATH=/bin"});
    EXPECT_EQ(machine.find().zone, ":/etc/localtime");
    EXPECT_THAT(machine.find().origin, HasSubstr(", this machine's time zone"));
    machine.addHorad(7, {"horad", "-t", "A"}, {"TZ="});
    EXPECT_EQ(machine.find().zone, "");
    EXPECT_THAT(machine.find().origin, HasSubstr(", TZ \"\""));
}

TEST(Setting, SaysThatHoradsZoneMayNotBeRead) {
    const fakes::LocalZone zone("Asia/Tokyo");
    FakeMachine machine;
    machine.addHorad(8, {"horad", "-t", "A"}, {"TZ=Europe/Berlin"});
    machine.sealEnvironment(8);
    EXPECT_EQ(machine.find().zone, "Asia/Tokyo");
    EXPECT_THAT(machine.find().origin, HasSubstr(", TZ Asia/Tokyo (horad's may not be read)"));
    std::filesystem::create_directory(machine.file(8, "environ")); // opens, but can't be read
    EXPECT_THAT(machine.find().origin, HasSubstr("(horad's may not be read)"));
    unsetenv("TZ");
    EXPECT_EQ(machine.find().zone, ":/etc/localtime");
    EXPECT_THAT(machine.find().origin, HasSubstr(", this machine's time zone (horad's may not be read)"));
}

TEST(Setting, OfSeveralHoradsIsThatOfTheOneThatThePidFileNames) {
    FakeMachine machine;
    machine.addHorad(1250, {"horad", "-t", "B"}, {"TZ=UTC"});
    machine.addHorad(991, {"horad", "-t", "A"}, {"TZ=UTC"});
    machine.addHorad(31000, {"horad", "-t", "C"}, {"TZ=UTC"});
    EXPECT_EQ(machine.find().origin, "as horad 991 runs (the lowest pid; not as 1250, 31000): -t A, a repeat "
                                     "delay of 180 s, TZ UTC");
    machine.setPidFile("1250\n");
    EXPECT_EQ(machine.find().origin, "as horad 1250 runs (which " + machine.places().pidFile +
                                         " names; not as 991, 31000): -t B, a repeat delay of 180 s, TZ UTC");
    for (const char* text : {"", "77\n", "4242\n", "-1250\n", "99999999999999999999999999\n", "\n1250\n"}) {
        machine.setPidFile(text);
        EXPECT_THAT(machine.find().tables, ElementsAre("A")) << text;
    }
}

TEST(Setting, IsNotThatOfAProcessThatEndsAtOnce) {
    const fakes::LocalZone zone("UTC");
    const Words commandLines[] = {
        {},                             // it has ended, and nobody has asked for its exit status
        {"horad"},                      // it has no table
        {"horad", "-t", "A", "-x"},     // a wrong option
        {"horad", "-t", "A", "--nope"}, // another one
        {"horad", "-t", "A", "-h"},     // it prints its usage
        {"horad", "-t"},                // an option without its argument
    };
    for (const Words& arguments : commandLines) {
        FakeMachine machine;
        machine.addHorad(8, arguments);
        const fakes::CapturedOutput output(STDOUT_FILENO);
        const fakes::CapturedOutput errors(STDERR_FILENO);
        const Setting setting = machine.find();
        std::cout << std::flush;
        EXPECT_THAT(output.text(), IsEmpty());
        EXPECT_THAT(errors.text(), IsEmpty());
        EXPECT_THAT(setting.origin, HasSubstr("no horad runs here"));
    }
}

TEST(Setting, IsReadFromTheBeginningWhateverWasParsedBefore) {
    FakeMachine machine;
    machine.addHorad(8, {"horad", "-xh"}); // the parser stops in the middle of a word
    machine.addHorad(9, {"horad", "-t", "A"});
    optind = 3;
    EXPECT_THAT(machine.find().tables, ElementsAre("A"));
    EXPECT_THAT(machine.find().tables, ElementsAre("A"));
}

TEST(Setting, OfAProcessThatEndsMeanwhileIsNone) {
    const fakes::LocalZone zone("UTC");
    FakeMachine machine;
    machine.addHorad(8, {"horad", "-t", "A"});
    std::filesystem::remove(machine.file(8, "cmdline"));
    EXPECT_THAT(machine.find().origin, HasSubstr("no horad runs here"));
}

TEST(Setting, LooksForHoradsOfTheSameStoreOnly) {
    FakeMachine machine;
    std::filesystem::create_directory(machine.path("elsewhere"));
    machine.addHorad(8, {"horad", "-t", "A"});
    machine.addHorad(9, {"horad", "-t", "B"});
    machine.setRoot(8, machine.path("elsewhere"));
    EXPECT_THAT(machine.find().tables, ElementsAre("B"));
    machine.setRoot(9, machine.places().storeFolder);
    EXPECT_THAT(machine.find().tables, ElementsAre("B"));
}

TEST(Setting, CanBePrintedWhateverTheCommandLineHolds) {
    FakeMachine machine;
    machine.addHorad(8, {"horad", "-t", "\x1b[2J", "-t", "two words"}, {"TZ=\x1b[31m"});
    const std::string origin = machine.find().origin;
    EXPECT_EQ(origin.find('\x1b'), std::string::npos);
    EXPECT_THAT(origin, HasSubstr("\"two words\""));
}

TEST(Setting, LeavesTheStreamsAndTheParserAsTheyWere) {
    FakeMachine machine;
    machine.addHorad(8, {"horad", "-x"});
    (void)machine.find();
    EXPECT_EQ(optind, 1);
    EXPECT_EQ(opterr, 1);
    const fakes::CapturedOutput output(STDOUT_FILENO);
    std::cout << "still there" << std::flush;
    EXPECT_EQ(output.text(), "still there");
    EXPECT_TRUE(std::cout.good());
    EXPECT_TRUE(std::cerr.good());
}

TEST(Setting, AUsedZoneIsInForceAtOnce) {
    const fakes::LocalZone zone("UTC");
    useZone("Europe/Berlin");
    EXPECT_EQ(timeForPerson(1795303800), "Sun 2026-11-22 00:30:00 CET");
    useZone("");
    EXPECT_EQ(timeForPerson(1795303800), "Sat 2026-11-21 23:30:00 UTC");
    useZone(":/etc/localtime");
    EXPECT_STREQ(std::getenv("TZ"), ":/etc/localtime");
}

} // namespace
