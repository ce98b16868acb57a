#include "probes/multicaststreams.h"
#include "support/kernelfiles.h"

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using orv::isIPTVStreamRunning;
using orv::MulticastStreamInfo;
using orv::MulticastStreams;
using testing::ElementsAre;
using testing::IsEmpty;
using Version = MulticastStreamInfo::EIpProtocolVersion;

// Rows of the local network's own groups, which are no television. They have a sign, because a group from
// 80000000 on counts as 7FFFFFFF.
const std::string localRow = ipRow("-20000000") + "\n";
const std::string televisionRow = ipRow("E1000001") + "\n";

class Streams : public testing::Test {
protected:
    bool isRunning(Version version) const {
        MulticastStreams streams;
        streams.doLoad(version);
        return streams.isIPTVRunning();
    }

    // With that text in the IPv4 cache, below its header.
    bool runsWith(const std::string& rows) const {
        files_.ipCache.write(ipCacheHeader + rows);
        return isIPTVStreamRunning();
    }

    KernelFiles files_;
};

TEST(StreamFiles, AreTheKernelsWhereNobodySetsThem) {
    EXPECT_STREQ(orv::ipMrCacheFile, "/proc/net/ip_mr_cache");
    EXPECT_STREQ(orv::ip6MrCacheFile, "/proc/net/ip6_mr_cache");
    EXPECT_STREQ(orv::ipMrVifFile, "/proc/net/ip_mr_vif");
    EXPECT_STREQ(orv::ip6MrVifFile, "/proc/net/ip6_mr_vif");
}

TEST_F(Streams, NoneAreThereAtFirst) {
    EXPECT_FALSE(MulticastStreams().isIPTVRunning());
}

TEST_F(Streams, NoneRunWithoutTheCaches) {
    EXPECT_FALSE(isIPTVStreamRunning());
    for (const Version version :
         {MulticastStreamInfo::IPv4, MulticastStreamInfo::IPv6, MulticastStreamInfo::Both})
        EXPECT_FALSE(isRunning(version));
}

TEST_F(Streams, NoneRunWithDirectoriesInPlaceOfTheCaches) {
    files_.ipCache.makeDirectory();
    files_.ip6Cache.makeDirectory();
    EXPECT_FALSE(isIPTVStreamRunning());
}

struct Case {
    const char* name;
    std::string rows; // of the IPv4 cache, below its header
    bool running;
};

const Case cases[] = {
    {"header only", "", false},
    {"empty lines", "\n\n\n", false},
    {"one", televisionRow, true},
    {"one of the local network", localRow, false},
    {"many of the local network", localRow + localRow + localRow, false},
    {"the last one", localRow + localRow + televisionRow, true},
    {"the first one", televisionRow + localRow, true},
    {"between empty lines", "\n\n" + televisionRow + "\n", true},
    {"239.1.1.1 as a big-endian kernel prints it", ipRow("EF010101") + "\n", true},
    {"239.1.1.1 as a little-endian kernel prints it", ipRow("010101EF") + "\n", true},
    {"unresolved", "E1000001 0A000001 -1         0        0        0\n", true},
    {"no outgoing interfaces", ipRow("E1000001", outputs(0)) + "\n", true},
    {"32 outgoing interfaces", ipRow("E1000001", outputs(32)) + "\n", true},
    {"32 outgoing interfaces in the local network", ipRow("-20000000", outputs(32)) + "\n", false},
    // ends of lines
    {"no end of the last line", ipRow("E1000001"), true},
    {"no end of the last line, local network", ipRow("-20000000"), false},
    {"carriage returns", ipRow("E1000001") + "\r\n", true},
    {"carriage returns, local network", "-20000000\r\n" + ipRow("-11000000") + "\r\n", false},
    // a row counts by its group alone, and without one it is 0
    {"one column", "E1000001\n", true},
    {"one column, local network", "-20000000\n", false},
    {"six columns", "E1000001 0A000001 0 1 2 3\n", true},
    {"six columns, local network", "-20000000 0A000001 0 1 2 3\n", false},
    {"blanks only", "   \n", true},
    {"a tab", "\t\n", true},
    {"a carriage return only", "\r\n", true},
    {"a blank without an end", " ", true},
    // bytes that are no text
    {"bytes above 127", "\xFF\xFE\x80\n", true},
    {"bytes above 127 behind a group of the local network", "-20000000\xFF\xFE \x80\n", false},
    {"a zero byte in front", std::string("\0E1000001\n", 10), false},
    {"a zero byte behind a group of the local network", std::string("-20000000\0E1000001\n", 19), false},
    {"a line behind one with a zero byte", std::string("-20000000\0\n", 11) + televisionRow, true},
};

TEST_F(Streams, RunWhereOneRowOfTheCacheIsTelevision) {
    for (const Case& given : cases)
        EXPECT_EQ(runsWith(given.rows), given.running) << given.name;
}

TEST_F(Streams, TheFirstLineIsTheHeaderWhateverItSays) {
    files_.ipCache.write(televisionRow);
    EXPECT_FALSE(isIPTVStreamRunning());
    files_.ipCache.write("\n" + televisionRow);
    EXPECT_TRUE(isIPTVStreamRunning());
    files_.ipCache.write(std::string(10000, 'x') + "\n" + localRow);
    EXPECT_FALSE(isIPTVStreamRunning());
    files_.ipCache.write(std::string(10000, 'x'));
    EXPECT_FALSE(isIPTVStreamRunning());
    files_.ipCache.write("");
    EXPECT_FALSE(isIPTVStreamRunning());
}

TEST_F(Streams, TheRestOfALongLineIsNoRowOfItsOwn) {
    for (const std::size_t length : {254U, 255U, 256U, 257U, 10000U}) {
        std::string line = ipRow("-20000000") + " ";
        line.resize(length, 'x');
        EXPECT_FALSE(runsWith(line + "\n")) << length;
        EXPECT_FALSE(runsWith(line)) << length;
        EXPECT_FALSE(runsWith(line + "\n" + localRow)) << length;
        EXPECT_TRUE(runsWith(line + "\n" + televisionRow)) << length;
    }
}

TEST_F(Streams, AGroupThatStandsTooFarToTheRightIsCut) {
    EXPECT_FALSE(runsWith(std::string(246, ' ') + "-20000000\n"));
    EXPECT_TRUE(runsWith(std::string(247, ' ') + "-20000000\n")); // -2000000 is left
}

TEST_F(Streams, AnyRowOfIPv6IsTelevision) {
    files_.ip6Cache.write(ip6CacheHeader);
    EXPECT_FALSE(isIPTVStreamRunning());
    for (const int outgoing : {0, 1, 32}) {
        files_.ip6Cache.write(ip6CacheHeader + ip6Row(outputs(outgoing)) + "\n");
        EXPECT_TRUE(isIPTVStreamRunning()) << outgoing;
    }
    files_.ip6Cache.write(ip6CacheHeader + localRow);
    EXPECT_TRUE(isIPTVStreamRunning());
    files_.ip6Cache.write(ip6CacheHeader + std::string("\n\n"));
    EXPECT_FALSE(isIPTVStreamRunning());
}

struct VersionCase {
    bool ipStream;
    bool ip6Stream;
    bool runningInIp;
    bool runningInIp6;
    bool runningInBoth;
};

const VersionCase versionCases[] = {
    {false, false, false, false, false},
    {true, false, true, false, true},
    {false, true, false, true, true},
    {true, true, true, true, true},
};

TEST_F(Streams, OneCacheOrBothAreRead) {
    for (const VersionCase& given : versionCases) {
        SCOPED_TRACE(&given - versionCases);
        files_.ipCache.write(ipCacheHeader + (given.ipStream ? televisionRow : localRow));
        files_.ip6Cache.write(ip6CacheHeader + (given.ip6Stream ? ip6Row() + "\n" : ""));
        EXPECT_EQ(isRunning(MulticastStreamInfo::IPv4), given.runningInIp);
        EXPECT_EQ(isRunning(MulticastStreamInfo::IPv6), given.runningInIp6);
        EXPECT_EQ(isRunning(MulticastStreamInfo::Both), given.runningInBoth);
        EXPECT_EQ(isIPTVStreamRunning(), given.runningInBoth);
    }
}

TEST_F(Streams, OnlyTheCachesThatAreAskedForAreOpened) {
    files_.ipCache.write(ipCacheHeader);
    files_.ip6Cache.write(ip6CacheHeader);
    const OpenedFiles opened(files_.directory.path());

    (void)isRunning(MulticastStreamInfo::IPv4);
    EXPECT_THAT(opened.names(), ElementsAre("ip_mr_cache"));
    (void)isRunning(MulticastStreamInfo::IPv6);
    EXPECT_THAT(opened.names(), ElementsAre("ip6_mr_cache"));
    (void)isRunning(static_cast<Version>(3));
    EXPECT_THAT(opened.names(), IsEmpty());
}

TEST_F(Streams, EachVersionLooksUpItsOwnInterfaces) {
    files_.ipCache.write(ipCacheHeader + televisionRow);
    files_.ip6Cache.write(ip6CacheHeader + ip6Row() + "\n");
    files_.ipVif.write(vifTable(ipVifHeader, "eth", 2));
    files_.ip6Vif.write(vifTable(ip6VifHeader, "sit", 2));
    const OpenedFiles opened(files_.directory.path());

    (void)isRunning(MulticastStreamInfo::IPv4);
    EXPECT_THAT(opened.names(), ElementsAre("ip_mr_cache", "ip_mr_vif"));
    (void)isRunning(MulticastStreamInfo::IPv6);
    EXPECT_THAT(opened.names(), ElementsAre("ip6_mr_cache", "ip6_mr_vif"));
}

TEST_F(Streams, TheInterfaceTableIsReadOnceForAllRows) {
    files_.ipCache.write(ipCacheHeader + televisionRow + localRow + televisionRow);
    files_.ipVif.write(vifTable(ipVifHeader, "eth", 2));
    const OpenedFiles opened(files_.directory.path());

    (void)isRunning(MulticastStreamInfo::IPv4);
    EXPECT_THAT(opened.openings(), ElementsAre("ip_mr_cache", "ip_mr_vif"));
}

TEST_F(Streams, ALaterLoadReadsTheInterfaceTableAfresh) {
    files_.ipCache.write(ipCacheHeader + televisionRow);
    files_.ipVif.write(vifTable(ipVifHeader, "eth", 2));
    const OpenedFiles opened(files_.directory.path());

    MulticastStreams streams;
    streams.doLoad(MulticastStreamInfo::IPv4);
    streams.doLoad(MulticastStreamInfo::IPv4);
    EXPECT_EQ(opened.openings().count("ip_mr_vif"), 2U);
}

TEST_F(Streams, WhetherOneRunsTakesNoInterfacesAndNothingBehindTheFirst) {
    files_.ipCache.write(ipCacheHeader + localRow + televisionRow);
    files_.ip6Cache.write(ip6CacheHeader);
    files_.ipVif.write(vifTable(ipVifHeader, "eth", 2));
    const OpenedFiles opened(files_.directory.path());

    EXPECT_TRUE(isIPTVStreamRunning());
    EXPECT_THAT(opened.openings(), ElementsAre("ip_mr_cache"));

    files_.ipCache.write(ipCacheHeader + localRow);
    (void)opened.openings();
    EXPECT_FALSE(isIPTVStreamRunning());
    EXPECT_THAT(opened.openings(), ElementsAre("ip6_mr_cache", "ip_mr_cache"));
}

TEST_F(Streams, AnotherLoadAddsToWhatIsThere) {
    MulticastStreams streams;
    files_.ipCache.write(ipCacheHeader + televisionRow);
    streams.doLoad(MulticastStreamInfo::IPv4);
    files_.ipCache.write(ipCacheHeader + localRow);
    streams.doLoad(MulticastStreamInfo::IPv4);
    EXPECT_TRUE(streams.isIPTVRunning());
}

TEST_F(Streams, EachQuestionReadsTheCachesAfresh) {
    EXPECT_FALSE(isIPTVStreamRunning());
    files_.ipCache.write(ipCacheHeader + televisionRow);
    EXPECT_TRUE(isIPTVStreamRunning());
    files_.ipCache.write(ipCacheHeader + localRow);
    EXPECT_FALSE(isIPTVStreamRunning());
}

} // namespace
