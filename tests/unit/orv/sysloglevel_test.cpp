#include "orv/sysloglevel.h"
#include "unit/orv/capture.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <regex>
#include <string>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// What time() answers in this test binary; the true time while it is negative.
std::int64_t scriptedTime = -1;

} // namespace

extern "C" time_t time(time_t* result) noexcept {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    const time_t answer = scriptedTime >= 0 ? static_cast<time_t>(scriptedTime) : now.tv_sec;
    if (result != nullptr)
        *result = answer;
    return answer;
}

namespace {

constexpr std::size_t lengthOfTime = sizeof "2026-11-21T06:44:43Z" - 1;

using LevelFunction = void (*)(const ORV_Sysloglevel_Modul*, const char*, int, const char*);

constexpr LevelFunction levelFunctions[] = {ORV_Sysloglevel_error, ORV_Sysloglevel_warning,
                                            ORV_Sysloglevel_info, ORV_Sysloglevel_debug};

class SysloglevelTest : public ::testing::Test {
protected:
    SysloglevelTest() { (void)lineOf("what other tests lost is told of now"); }
    ~SysloglevelTest() override {
        scriptedTime = -1;
        ORV_Sysloglevel_construct2("", "");
        ORV_Sysloglevel_set(0);
    }

    // The line of an info with that text, with its end.
    std::string lineOf(const std::string& text) const {
        test::CapturedStandardError captured;
        ORV_Sysloglevel_info(module_, "test", 1, text.c_str());
        return captured.text();
    }

    // Without the time in front.
    std::string textOf(const std::string& text) const { return lineOf(text).substr(lengthOfTime); }

    std::string linesOfAllLevels() const {
        test::CapturedStandardError captured;
        for (const LevelFunction function : levelFunctions)
            function(module_, "test", 1, "text");
        return std::regex_replace(captured.text(), std::regex("[^ ]* (.*) .*\n"), "$1 ");
    }

    ORV_Sysloglevel_Modul* module_ = ORV_Sysloglevel_registerModul("horad");
};

TEST_F(SysloglevelTest, LineHasTimeLevelModuleAndText) {
    scriptedTime = 1795243483;

    EXPECT_EQ(lineOf("WLAN is on"), "2026-11-21T06:44:43Z info horad: WLAN is on\n");
}

TEST_F(SysloglevelTest, TimeIsRightInEveryCentury) {
    struct Case {
        std::int64_t seconds;
        const char* text;
    };
    const Case cases[] = {
        {0, "1970-01-01T00:00:00Z"},           {951782399, "2000-02-28T23:59:59Z"},
        {951782400, "2000-02-29T00:00:00Z"},   {951868800, "2000-03-01T00:00:00Z"},
        {1798761599, "2026-12-31T23:59:59Z"},  {1798761600, "2027-01-01T00:00:00Z"},
        {2147483647, "2038-01-19T03:14:07Z"},  {2147483648, "2038-01-19T03:14:08Z"},
        {4107542399, "2100-02-28T23:59:59Z"},  {4107542400, "2100-03-01T00:00:00Z"},
        {13574563200, "2400-02-29T00:00:00Z"}, {253402300799, "9999-12-31T23:59:59Z"},
    };
    for (const Case& entry : cases) {
        if (static_cast<time_t>(entry.seconds) != entry.seconds)
            continue; // beyond what this machine's clock can say
        scriptedTime = entry.seconds;

        EXPECT_EQ(lineOf("x").substr(0, lengthOfTime), entry.text);
    }
}

TEST_F(SysloglevelTest, NormalLevelFiltersDebugAlone) {
    ORV_Sysloglevel_changeTracelevel("horad", 113);

    EXPECT_EQ(linesOfAllLevels(), "error horad: warning horad: info horad: ");
}

TEST_F(SysloglevelTest, VerboseLevelPassesEverything) {
    ORV_Sysloglevel_changeTracelevel("horad", 1023);

    EXPECT_EQ(linesOfAllLevels(), "error horad: warning horad: info horad: debug horad: ");
}

TEST_F(SysloglevelTest, LevelOfZeroPassesNothing) {
    ORV_Sysloglevel_changeTracelevel("horad", 0);

    EXPECT_EQ(linesOfAllLevels(), "");
    ORV_Sysloglevel_changeTracelevel("horad", 113);
}

TEST_F(SysloglevelTest, LevelOfAnUnknownModuleChangesNothing) {
    ORV_Sysloglevel_changeTracelevel("horad", 113);

    ORV_Sysloglevel_changeTracelevel("nobody", 0);

    EXPECT_EQ(textOf("still here"), " info horad: still here\n");
}

TEST_F(SysloglevelTest, ModuleIsMadeOnceAndKeepsItsLevel) {
    ORV_Sysloglevel_changeTracelevel("horad", 1023);

    EXPECT_EQ(ORV_Sysloglevel_registerModul("horad"), module_);

    EXPECT_EQ(linesOfAllLevels(), "error horad: warning horad: info horad: debug horad: ");
    ORV_Sysloglevel_changeTracelevel("horad", 113);
}

TEST_F(SysloglevelTest, NewModuleStartsAtTheNormalLevel) {
    module_ = ORV_Sysloglevel_registerModul("timefrm");

    EXPECT_EQ(linesOfAllLevels(), "error timefrm: warning timefrm: info timefrm: ");
}

TEST_F(SysloglevelTest, PrefixStandsBeforeTheText) {
    ORV_Sysloglevel_construct2("test: ", "horad");

    EXPECT_EQ(textOf("on"), " info horad: test: on\n");
}

TEST_F(SysloglevelTest, ControlCharactersBecomeBlanksAndDisappearAtTheEnd) {
    struct Case {
        const char* text;
        const char* line;
    };
    const Case cases[] = {
        {"one\ntwo", "one two"},
        {"a\tb\x1B[31mc\x7F"
         "d",
         "a b [31mc d"},
        {"end\r\n\n", "end"},
        {"blank ", "blank "},
        {"\n", ""},
        {"gr\xC3\xBC\xC3\x9F", "gr\xC3\xBC\xC3\x9F"},
        {"\xC2\x9B"
         "2Jcleared",
         " 2Jcleared"}, // U+009B, which a terminal takes for the beginning of a command
        {"a\xC2\x80\xC2\x9F"
         "b",
         "a  b"},
        {"end\xC2\x85", "end"},
        {"no\xC2\xA0"
         "break",
         "no\xC2\xA0"
         "break"},
    };
    for (const Case& entry : cases)
        EXPECT_EQ(textOf(entry.text), std::string(" info horad: ") + entry.line + "\n");
}

// A terminal of eight bits takes the bytes 80 to 9F for control characters, a lenient one what is too long.
TEST_F(SysloglevelTest, BytesThatAreNoUtf8BecomeQuestionMarks) {
    struct Case {
        const char* text;
        const char* line;
    };
    const Case cases[] = {
        {"\x9B"
         "2J",
         "?2J"},
        {"\xC2", "?"},
        {"\xC2x", "?x"},
        {"\xC2\xC2\x9B"
         "x",
         "? x"},
        {"\xC0\x9B[2J", "??[2J"},
        {"\xE0\x82\x9B", "???"},
        {"\xF0\x80\x82\x9B", "????"},
        {"\xED\xA0\x80", "???"},
        {"\xF4\x90\x80\x80", "????"},
        {"\xE2\x82", "??"},
        {"gr\xFC\xDF", "gr??"},
        {"\xE2\x82\xAC \xF0\x9F\x8C\x99", "\xE2\x82\xAC \xF0\x9F\x8C\x99"},
    };
    for (const Case& entry : cases)
        EXPECT_EQ(textOf(entry.text), std::string(" info horad: ") + entry.line + "\n");
}

TEST_F(SysloglevelTest, CharacterThatDoesNotFitIsLeftOutWhole) {
    const std::string umlaut = "\xC3\xBC";
    const std::size_t head = lineOf("").size() - 1;
    const std::string fill(2047 - head - 1, 'x'); // one byte is left

    EXPECT_EQ(textOf(fill + umlaut + "y"), " info horad: " + fill + "\n");
}

TEST_F(SysloglevelTest, TextIsNoFormat) {
    EXPECT_EQ(textOf("%s%n%d 100%"), " info horad: %s%n%d 100%\n");
}

TEST_F(SysloglevelTest, LongestTextPassesWhole) {
    const std::string text(1900, 'x');

    EXPECT_EQ(textOf(text), " info horad: " + text + "\n");
}

TEST_F(SysloglevelTest, TextWithoutEndIsCutAndStillALine) {
    const std::string line = lineOf(std::string(100000, 'x'));

    EXPECT_EQ(line.size(), 2048U);
    EXPECT_EQ(line.back(), '\n');
}

TEST_F(SysloglevelTest, FullPipeHoldsNobodyUpAndMissingLinesAreToldOnceThereIsRoom) {
    constexpr int lines = 2000; // more than a pipe takes
    scriptedTime = 1795243483;
    test::CapturedStandardError captured;
    for (int i = 0; i < lines; ++i)
        ORV_Sysloglevel_info(module_, "test", 1, std::string(100, 'x').c_str());
    const std::string early = captured.textSoFar();
    ORV_Sysloglevel_info(module_, "test", 1, "seen again");
    ORV_Sysloglevel_info(module_, "test", 1, "and again");

    const auto there = std::count(early.begin(), early.end(), '\n');
    EXPECT_GT(there, 100);
    EXPECT_EQ(captured.text(), "2026-11-21T06:44:43Z warning horad: " + std::to_string(lines - there) +
                                   " lines before this one could not be written\n"
                                   "2026-11-21T06:44:43Z info horad: seen again\n"
                                   "2026-11-21T06:44:43Z info horad: and again\n");
}

TEST_F(SysloglevelTest, LineForAMissingSystemLogIsLostAndNothingElse) {
    test::CapturedStandardError captured;
    ORV_Sysloglevel_set(1);
    ORV_Sysloglevel_info(module_, "test", 1, "lost");

    ORV_Sysloglevel_set(0);
    ORV_Sysloglevel_info(module_, "test", 1, "kept");

    EXPECT_EQ(captured.text().substr(lengthOfTime), " info horad: kept\n");
}

TEST_F(SysloglevelTest, ModulesBeyondTheRoomShareTheLast) {
    const pid_t child = fork(); // the room that is filled here is the process's
    ASSERT_GE(child, 0);
    if (child == 0) {
        ORV_Sysloglevel_Modul* last = nullptr;
        for (int i = 0; i < 16; ++i)
            last = ORV_Sysloglevel_registerModul(("module" + std::to_string(i)).c_str());
        const bool shared = ORV_Sysloglevel_registerModul("one too many") == last && last != module_;
        _exit(shared && ORV_Sysloglevel_registerModul("horad") == module_ ? EXIT_SUCCESS : EXIT_FAILURE);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, EXIT_SUCCESS);
}

TEST(VAStr, FormatsLikePrintf) {
    EXPECT_EQ(VAStr("plan %u of %s is %5.1f%%", 3U, "WlanTimePlans", 99.5),
              "plan 3 of WlanTimePlans is  99.5%");
    EXPECT_EQ(VAStr("%s", ""), "");
}

TEST(VAStr, TakesTextsOfAnyLength) {
    const std::string text(100000, 'x');

    EXPECT_EQ(VAStr("%s!", text.c_str()), text + "!");
}

} // namespace
