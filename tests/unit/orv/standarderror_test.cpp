#include "orv/error.h"
#include "orv/standarderror.h"
#include "orv/sysloglevel.h"
#include "unit/orv/capture.h"
#include "unit/orv/journal.h"

#include <cerrno>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

namespace {

class JournalTest : public ::testing::Test {
protected:
    JournalTest() {
        { // what other tests lost is told of now
            const test::CapturedStandardError captured;
            ORV_Sysloglevel_info(module_, "test", 1, "text");
        }
        ORV_Sysloglevel_changeTracelevel("horad", 1023);
    }
    ~JournalTest() override {
        unsetenv("JOURNAL_STREAM");
        ORV_Sysloglevel_changeTracelevel("horad", 113);
        ORV_Sysloglevel_construct2("", "");
    }

    const ORV_Sysloglevel_Modul* module_ = ORV_Sysloglevel_registerModul("horad");
};

TEST_F(JournalTest, LineOfTheLogBeginsWithItsSeverityAndHasNoTime) {
    test::CapturedStandardError captured;
    test::makeJournalOfStandardError();
    ORV_Sysloglevel_construct2("", "horad");

    ORV_Sysloglevel_error(module_, "test", 1, "one");
    ORV_Sysloglevel_warning(module_, "test", 1, "two");
    ORV_Sysloglevel_info(module_, "test", 1, "three");
    ORV_Sysloglevel_debug(module_, "test", 1, "four");

    EXPECT_EQ(captured.text(), "<3>one\n<4>two\n<6>three\n<7>four\n");
}

TEST_F(JournalTest, LineNamesAModuleThatIsNotTheProgramAndThePrefix) {
    test::CapturedStandardError captured;
    test::makeJournalOfStandardError();
    ORV_Sysloglevel_construct2("night: ", "another");

    ORV_Sysloglevel_info(module_, "test", 1, "WLAN is on");

    EXPECT_EQ(captured.text(), "<6>horad: night: WLAN is on\n");
}

TEST_F(JournalTest, TextCannotForgeASeverityOrASecondLine) {
    test::CapturedStandardError captured;
    test::makeJournalOfStandardError();
    ORV_Sysloglevel_construct2("", "horad");

    ORV_Sysloglevel_info(module_, "test", 1, "<0>plan\n<0>forged");

    EXPECT_EQ(captured.text(), "<6><0>plan <0>forged\n");
}

TEST_F(JournalTest, VariableThatNamesAnotherStreamChangesNothing) {
    const char* const streams[] = {"", "0:0", "x", "1:2:3", "99999999999999999999999999999999999999999:1"};
    for (const char* const stream : streams) {
        setenv("JOURNAL_STREAM", stream, 1);

        EXPECT_FALSE(orv::isJournalOnStandardError()) << stream;
    }
}

TEST_F(JournalTest, StreamThatWasReplacedIsNoJournal) {
    test::makeJournalOfStandardError();
    const test::CapturedStandardError another;

    EXPECT_FALSE(orv::isJournalOnStandardError());
}

TEST_F(JournalTest, LastLineOfAProgramIsAnErrorForTheJournal) {
    test::CapturedStandardError captured;
    test::makeJournalOfStandardError();

    orv::writeErrorLine("no room");

    EXPECT_EQ(captured.text(), "<3>no room\n");
}

TEST_F(JournalTest, LastLineOfAProgramIsThePlainTextElsewhere) {
    test::CapturedStandardError captured;

    orv::writeErrorLine("no room");

    EXPECT_EQ(captured.text(), "no room\n");
}

TEST_F(JournalTest, FailedAssertionIsAnErrorForTheJournal) {
    test::CapturedStandardError captured;
    test::makeJournalOfStandardError();

    orv::error::DefaultAssertHook().report("a > b", "file.cpp", 7);

    EXPECT_EQ(captured.text(), "<3>assertion failed: a > b (file.cpp:7)\n");
}

} // namespace
