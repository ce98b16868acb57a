#include "probes/systemidle.h"
#include "support/fakestore.h"
#include "support/kernelfiles.h"

#include <climits>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using orv::isFirmwareDownloadSIPCallIdletimePassed;
using orv::isSipCallActive;
using orv::isSystemIdle;
using orv::SystemIdleType;
using testing::ElementsAre;
using testing::IsEmpty;

class SystemIdle : public testing::Test {
protected:
    // What the conversion of the first line says, or that there was no complaint.
    template <typename Complaint>
    std::string complaint() {
        try {
            (void)isSipCallActive(client_);
        } catch (const Complaint& error) {
            return error.what();
        }
        return "none";
    }

    void startStream() const { files_.ipCache.write(ipCacheHeader + ipRow("E1000001") + "\n"); }

    KernelFiles files_;
    fakes::FakeStore client_;
};

TEST(SystemIdleFile, IsTheKernelsWhereNobodySetsIt) {
    EXPECT_STREQ(orv::kvenvSipCallFile, "/proc/kelvaro/ksn/udp/instance_count");
}

struct CallCase {
    std::string content;
    bool active;
};

const CallCase callCases[] = {
    {"0\n", false},
    {"0", false},
    {"1\n", true},
    {"2\n", true},
    {"2", true},
    {"2147483647\n", true},
    {"-2147483648\n", true},
    // a number with something around it
    {"  3 calls\n", true},
    {"  0 calls\n", false},
    {" \t\v\f\r3\n", true},
    {"3x\n", true},
    {"0x10\n", false}, // the base is 10
    {"0.9\n", false},
    {"+1\n", true},
    {"+0\n", false},
    {"-1\n", true},
    {"-0\n", false},
    {"007\n", true},
    {"000\n", false},
    {"1\r\n", true},
    {"0\r\n", false},
    {"0\xFF\n", false},
    // only the first line counts
    {"0\n5\n", false},
    {"5\n0\n", true},
    {"0\nword\n", false},
    // a zero byte ends it
    {std::string("0\0005\n", 4), false},
    {std::string("5\0000\n", 4), true},
    // 63 characters of it, no more
    {std::string(62, ' ') + "1\n", true},
    {std::string(62, ' ') + "12\n", true},
    {std::string(62, '0') + "1\n", true},
    {std::string(63, '0') + "1\n", false},
    {std::string(63, '0') + "1", false},
    {std::string(10000, '0') + "1\n", false},
    {"1" + std::string(10000, ' '), true},
};

TEST_F(SystemIdle, ACallIsActiveWhereTheFirstNumberIsNotZero) {
    for (const CallCase& given : callCases) {
        files_.sipCalls.write(given.content);
        EXPECT_EQ(isSipCallActive(client_), given.active) << given.content;
    }
}

TEST_F(SystemIdle, WithoutTheFileThereIsNoCall) {
    EXPECT_FALSE(isSipCallActive(client_));
    EXPECT_TRUE(isSystemIdle(client_, SystemIdleType::Reboot));
    EXPECT_TRUE(isSystemIdle(client_, SystemIdleType::FirmwareDownload));
}

TEST_F(SystemIdle, AFirstLineWithoutANumberIsAnError) {
    const std::string contents[] = {
        "",
        "\n",
        "\n5\n",
        "   \n5\n",
        "word\n",
        "-\n",
        "+\n",
        "- 1\n",
        "--1\n",
        ".5\n",
        "\xA0"
        "1\n",
        std::string("\0"
                    "5\n",
                    3),
        std::string(63, ' ') + "1\n",
        std::string(10000, ' ') + "1\n",
    };
    for (const std::string& content : contents) {
        files_.sipCalls.write(content);
        EXPECT_EQ(complaint<std::invalid_argument>(), "stol") << content;
    }
}

TEST_F(SystemIdle, ADirectoryInPlaceOfTheFileIsAnError) {
    files_.sipCalls.makeDirectory();
    EXPECT_EQ(complaint<std::invalid_argument>(), "stol");
}

TEST_F(SystemIdle, ANumberOutOfTheRangeOfALongIsAnError) {
    const std::string highest = std::to_string(LONG_MAX);
    const std::string lowest = std::to_string(LONG_MIN);
    for (const std::string& fits : {highest, lowest}) {
        files_.sipCalls.write(fits + "\n");
        EXPECT_TRUE(isSipCallActive(client_)) << fits;
    }
    std::string tooHigh = highest;
    ++tooHigh.back(); // ends with 7
    std::string tooLow = lowest;
    ++tooLow.back(); // ends with 8
    for (const std::string& exceeds : {tooHigh, tooLow, std::string(63, '9'), std::string(10000, '1')}) {
        files_.sipCalls.write(exceeds + "\n");
        EXPECT_EQ(complaint<std::out_of_range>(), "stol") << exceeds;
    }
}

TEST_F(SystemIdle, TheErrorComesOutOfEveryProbeThatAsksForCalls) {
    files_.sipCalls.write("\n");
    EXPECT_THROW((void)isFirmwareDownloadSIPCallIdletimePassed(client_, 300), std::invalid_argument);
    EXPECT_THROW((void)isSystemIdle(client_, SystemIdleType::Reboot), std::invalid_argument);
    EXPECT_THROW((void)isSystemIdle(client_, SystemIdleType::FirmwareDownload), std::invalid_argument);
    EXPECT_TRUE(isSystemIdle(client_, static_cast<SystemIdleType>(2)));
}

TEST_F(SystemIdle, HowLongNoCallWasActiveDoesNotMatter) {
    for (const unsigned duration : {0U, 1U, 300U, UINT_MAX}) {
        files_.sipCalls.write("1\n");
        EXPECT_FALSE(isFirmwareDownloadSIPCallIdletimePassed(client_, duration));
        files_.sipCalls.write("0\n");
        EXPECT_TRUE(isFirmwareDownloadSIPCallIdletimePassed(client_, duration));
    }
}

struct IdleCase {
    bool call;
    bool stream;
    bool idleForReboot;
    bool idleForDownload;
};

const IdleCase idleCases[] = {
    {false, false, true, true},
    {false, true, true, false},
    {true, false, false, false},
    {true, true, false, false},
};

TEST_F(SystemIdle, CallsDisturbBothAndStreamsTheDownload) {
    for (const IdleCase& given : idleCases) {
        SCOPED_TRACE(&given - idleCases);
        files_.sipCalls.write(given.call ? "1\n" : "0\n");
        files_.ipCache.write(ipCacheHeader + (given.stream ? ipRow("E1000001") + "\n" : ""));
        EXPECT_EQ(isSystemIdle(client_, SystemIdleType::Reboot), given.idleForReboot);
        EXPECT_EQ(isSystemIdle(client_, SystemIdleType::FirmwareDownload), given.idleForDownload);
        for (const int other : {2, 3, -1, INT_MAX, INT_MIN})
            EXPECT_TRUE(isSystemIdle(client_, static_cast<SystemIdleType>(other))) << other;
    }
}

TEST_F(SystemIdle, ARebootDoesNotLookAtStreams) {
    files_.sipCalls.write("0\n");
    startStream();
    const OpenedFiles opened(files_.directory.path());

    EXPECT_TRUE(isSystemIdle(client_, SystemIdleType::Reboot));

    EXPECT_THAT(opened.names(), ElementsAre("instance_count"));
}

TEST_F(SystemIdle, ADownloadDoesNotLookAtStreamsDuringACall) {
    files_.sipCalls.write("1\n");
    startStream();
    const OpenedFiles opened(files_.directory.path());

    EXPECT_FALSE(isSystemIdle(client_, SystemIdleType::FirmwareDownload));

    EXPECT_THAT(opened.names(), ElementsAre("instance_count"));
}

TEST_F(SystemIdle, ADownloadLooksAtCallsAndStreams) {
    files_.sipCalls.write("0\n");
    const OpenedFiles opened(files_.directory.path());
    files_.ipCache.write(ipCacheHeader);
    files_.ip6Cache.write(ip6CacheHeader);
    (void)opened.names(); // those that were written

    EXPECT_TRUE(isSystemIdle(client_, SystemIdleType::FirmwareDownload));

    EXPECT_THAT(opened.names(), ElementsAre("instance_count", "ip6_mr_cache", "ip_mr_cache"));
}

TEST_F(SystemIdle, AnyOtherTypeLooksAtNothing) {
    files_.sipCalls.write("1\n");
    startStream();
    const OpenedFiles opened(files_.directory.path());

    EXPECT_TRUE(isSystemIdle(client_, static_cast<SystemIdleType>(2)));

    EXPECT_THAT(opened.names(), IsEmpty());
}

TEST_F(SystemIdle, EachCallReadsTheFilesAfresh) {
    files_.sipCalls.write("0\n");
    EXPECT_TRUE(isSystemIdle(client_, SystemIdleType::FirmwareDownload));
    files_.sipCalls.write("1\n");
    EXPECT_FALSE(isSystemIdle(client_, SystemIdleType::FirmwareDownload));
    files_.sipCalls.write("0\n");
    EXPECT_TRUE(isSystemIdle(client_, SystemIdleType::FirmwareDownload));
    startStream();
    EXPECT_FALSE(isSystemIdle(client_, SystemIdleType::FirmwareDownload));
    files_.ipCache.write(ipCacheHeader);
    EXPECT_TRUE(isSystemIdle(client_, SystemIdleType::FirmwareDownload));
}

TEST_F(SystemIdle, TheClientIsNotUsed) {
    files_.sipCalls.write("0\n");
    startStream();
    (void)isSystemIdle(client_, SystemIdleType::Reboot);
    (void)isSystemIdle(client_, SystemIdleType::FirmwareDownload);
    EXPECT_THAT(client_.journal(), IsEmpty());
}

} // namespace
