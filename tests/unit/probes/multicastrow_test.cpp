#include "probes/multicaststreams.h"
#include "support/kernelfiles.h"

#include <climits>
#include <list>
#include <string>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using orv::MulticastStreamInfo;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using Names = std::list<std::string>;

// Interfaces eth0 to eth31 of IPv4 and sit0 to sit31 of IPv6.
class MulticastRow : public testing::Test {
protected:
    MulticastRow() {
        files_.ipVif.write(vifTable(ipVifHeader, "eth", 32));
        files_.ip6Vif.write(vifTable(ip6VifHeader, "sit", 32));
    }

    std::string nameOf(int index) const {
        return MulticastStreamInfo::getInterfaceNameByIndex(index, files_.ipVif.path());
    }

    KernelFiles files_;
};

MulticastStreamInfo ipInfo(const std::string& line) {
    return {line, MulticastStreamInfo::IPv4};
}

MulticastStreamInfo ip6Info(const std::string& line) {
    return {line, MulticastStreamInfo::IPv6};
}

TEST_F(MulticastRow, OfIPv4IsTakenApart) {
    const MulticastStreamInfo info = ipInfo("E1000001 0A000001 2         12     3456        0  0:1    3:255");
    EXPECT_EQ(info.group, "E1000001");
    EXPECT_EQ(info.origin, "0A000001");
    EXPECT_EQ(info.inputInterface, "eth2");
    EXPECT_THAT(info.outputInterfaces, ElementsAre("eth0", "eth3"));
    EXPECT_EQ(info.loaded, 1);
    EXPECT_EQ(info.version, MulticastStreamInfo::IPv4);
    EXPECT_EQ(info.vifFile, files_.ipVif.path());
}

TEST_F(MulticastRow, OfIPv6IsTakenApart) {
    const MulticastStreamInfo info = ip6Info(ip6Row("  2:1    3:1  "));
    EXPECT_EQ(info.group, "ff3e:0000:0000:0000:0000:0000:ab00:cd22");
    EXPECT_EQ(info.origin, "2aaa:0bbb:0000:0000:0000:0000:0000:eee9");
    EXPECT_EQ(info.inputInterface, "sit1");
    EXPECT_THAT(info.outputInterfaces, ElementsAre("sit2", "sit3"));
    EXPECT_EQ(info.loaded, 1);
    EXPECT_EQ(info.version, MulticastStreamInfo::IPv6);
    EXPECT_EQ(info.vifFile, files_.ip6Vif.path());
}

TEST_F(MulticastRow, AnyVersionButIPv4HasTheInterfacesOfIPv6) {
    const MulticastStreamInfo info(ipRow("E1000001"), MulticastStreamInfo::Both);
    EXPECT_EQ(info.version, MulticastStreamInfo::Both);
    EXPECT_EQ(info.vifFile, files_.ip6Vif.path());
    EXPECT_EQ(info.inputInterface, "sit0");
}

TEST_F(MulticastRow, AnUnresolvedOneHasNoInterfaces) {
    const MulticastStreamInfo info = ipInfo("E1000001 0A000001 -1         0        0        0");
    EXPECT_EQ(info.group, "E1000001");
    EXPECT_EQ(info.inputInterface, "");
    EXPECT_THAT(info.outputInterfaces, IsEmpty());
    EXPECT_EQ(info.loaded, 1);
}

TEST_F(MulticastRow, HasUpTo32OutgoingInterfacesInTextOrder) {
    EXPECT_THAT(ipInfo(ipRow("E1000001", outputs(0))).outputInterfaces, IsEmpty());
    EXPECT_THAT(ipInfo(ipRow("E1000001", outputs(1))).outputInterfaces, ElementsAre("eth0"));
    const char* const all[] = {"eth0",  "eth1",  "eth10", "eth11", "eth12", "eth13", "eth14", "eth15",
                               "eth16", "eth17", "eth18", "eth19", "eth2",  "eth20", "eth21", "eth22",
                               "eth23", "eth24", "eth25", "eth26", "eth27", "eth28", "eth29", "eth3",
                               "eth30", "eth31", "eth4",  "eth5",  "eth6",  "eth7",  "eth8",  "eth9"};
    EXPECT_THAT(ipInfo(ipRow("E1000001", outputs(32))).outputInterfaces, ElementsAreArray(all));
}

struct OutputCase {
    const char* outputs;
    Names names;
};

const OutputCase outputCases[] = {
    {"3:1 0:1", {"eth0", "eth3"}},
    {"10:1 9:1", {"eth10", "eth9"}},
    {"1:1 1:255", {"eth1"}},
    {"1:1:1", {"eth1"}},
    {"1:", {"eth1"}},
    {"1", {"eth1"}},
    {":1", {"eth0"}},
    {"40:1", {""}},
    {"-1:1", {""}},
    {"x:1", {"eth0"}},
    {"2x:1", {"eth2"}},
    {"+2:1", {"eth2"}},
    {"02:1", {"eth2"}},
    {"99999999999999999999:1", {""}},
    {"4294967296:1", {""}}, // no index 0
};

TEST_F(MulticastRow, ReadsAnIndexInFrontOfEachColon) {
    for (const OutputCase& given : outputCases)
        EXPECT_THAT(ipInfo(std::string("E0E0E0E0 FAFAFAFA 7 8 9 6 ") + given.outputs).outputInterfaces,
                    ElementsAreArray(given.names))
            << given.outputs;
}

TEST_F(MulticastRow, OutgoingInterfacesBeginWhereTheirFirstTextStandsInTheRow) {
    // "0:1" is part of the group: its rest, the origin and the counters are taken for pairs
    const MulticastStreamInfo info = ip6Info("ff3e:0000:1234 2aaa:0bbb 1 12 3456 5 0:1 7:1");
    EXPECT_THAT(info.outputInterfaces, ElementsAre("sit0", "sit1", "sit12", "sit2", "", "sit5", "sit7"));
}

struct ShortCase {
    const char* line;
    const char* group;
    const char* origin;
    const char* inputInterface;
    Names outputInterfaces;
};

const ShortCase shortCases[] = {
    {"", "", "", "", {}},
    {"   \t  ", "", "", "", {}},
    {"E1000001", "E1000001", "", "", {}},
    {"E1000001 0A000001", "E1000001", "0A000001", "", {}},
    {"E1000001 0A000001 2", "E1000001", "0A000001", "eth2", {}},
    {"E1000001 0A000001 2 10 100", "E1000001", "0A000001", "eth2", {}},
    {"E1000001 0A000001 2 10 100 0", "E1000001", "0A000001", "eth2", {}},
    {"E1000001 0A000001 2 10 100 0 1:1", "E1000001", "0A000001", "eth2", {"eth1"}},
};

TEST_F(MulticastRow, WhatAShortOneLacksIsEmpty) {
    for (const ShortCase& given : shortCases) {
        SCOPED_TRACE(given.line);
        const MulticastStreamInfo info = ipInfo(given.line);
        EXPECT_EQ(info.group, given.group);
        EXPECT_EQ(info.origin, given.origin);
        EXPECT_EQ(info.inputInterface, given.inputInterface);
        EXPECT_EQ(info.outputInterfaces, given.outputInterfaces);
        EXPECT_EQ(info.loaded, 1);
    }
}

TEST_F(MulticastRow, BlanksAndTabsStandBetweenColumns) {
    for (const char* line :
         {"E1000001 0A000001 2 10 100 0 1:1", "  E1000001   0A000001   2 10 100 0  1:1  ",
          "\tE1000001\t0A000001\t\t2\t10 \t 100\t0\t1:1\t", "E1000001 0A000001 2 10 100 0 1:1\r",
          "\v\fE1000001 0A000001 2 10 100 0 1:1\r\n"}) {
        const MulticastStreamInfo info = ipInfo(line);
        EXPECT_EQ(info.group, "E1000001") << line;
        EXPECT_EQ(info.origin, "0A000001") << line;
        EXPECT_EQ(info.inputInterface, "eth2") << line;
        EXPECT_THAT(info.outputInterfaces, ElementsAre("eth1")) << line;
    }
}

TEST_F(MulticastRow, KeepsBytesThatAreNoText) {
    const MulticastStreamInfo info = ipInfo("\xFF\x80 \xC3\xA4 \xFF \x01 2 3 \xFE:1");
    EXPECT_EQ(info.group, "\xFF\x80");
    EXPECT_EQ(info.origin, "\xC3\xA4");
    EXPECT_EQ(info.inputInterface, "eth0"); // no number reads as 0
    EXPECT_THAT(info.outputInterfaces, ElementsAre("eth0"));
}

TEST_F(MulticastRow, IsReplacedByTheNextOne) {
    MulticastStreamInfo info = ipInfo("E1000001 0A000001 2 10 100 0 1:1 3:1");

    info.doLoad("E2000002", MulticastStreamInfo::IPv6);

    EXPECT_EQ(info.group, "E2000002");
    EXPECT_EQ(info.origin, "");
    EXPECT_EQ(info.inputInterface, "");
    EXPECT_THAT(info.outputInterfaces, IsEmpty());
    EXPECT_EQ(info.version, MulticastStreamInfo::IPv6);
    EXPECT_EQ(info.vifFile, files_.ipVif.path()); // that of the first
    EXPECT_EQ(info.loaded, 1);
}

TEST_F(MulticastRow, CanBeParsedAgainFromItsOwnGroup) {
    MulticastStreamInfo info = ipInfo("E1000001 0A000001 2 10 100 0 1:1");
    info.doLoad(info.group, MulticastStreamInfo::IPv4);
    EXPECT_EQ(info.group, "E1000001");
    EXPECT_EQ(info.origin, "");
}

TEST_F(MulticastRow, IsCopiedAndMovedWhole) {
    MulticastStreamInfo original = ip6Info(ip6Row("  2:1    3:1  "));
    const MulticastStreamInfo copy = original;
    original.doLoad("x", MulticastStreamInfo::IPv4);
    MulticastStreamInfo source = copy;
    const MulticastStreamInfo moved = std::move(source);
    for (const MulticastStreamInfo& info : {copy, moved}) {
        EXPECT_EQ(info.group, "ff3e:0000:0000:0000:0000:0000:ab00:cd22");
        EXPECT_EQ(info.origin, "2aaa:0bbb:0000:0000:0000:0000:0000:eee9");
        EXPECT_EQ(info.inputInterface, "sit1");
        EXPECT_THAT(info.outputInterfaces, ElementsAre("sit2", "sit3"));
        EXPECT_EQ(info.loaded, 1);
        EXPECT_EQ(info.version, MulticastStreamInfo::IPv6);
        EXPECT_EQ(info.vifFile, files_.ip6Vif.path());
    }
}

TEST_F(MulticastRow, WithoutAnInterfaceTableNamesAreEmpty) {
    MulticastStreamInfo info = ipInfo("");
    info.vifFile = files_.directory.path() / "missing";
    info.doLoad(ipRow("E1000001", outputs(2)), MulticastStreamInfo::IPv4);
    EXPECT_EQ(info.group, "E1000001");
    EXPECT_EQ(info.inputInterface, "");
    EXPECT_THAT(info.outputInterfaces, ElementsAre("", ""));
}

struct IndexCase {
    int index;
    const char* name;
};

const IndexCase indexCases[] = {{0, "eth0"},   {1, "eth1"}, {9, "eth9"}, {10, "eth10"},     {31, "eth31"},
                                {32, ""},      {33, ""},    {100, ""},   {310, ""},         {-1, ""},
                                {INT_MAX, ""}, {-2, ""},    {-31, ""},   {INT_MIN + 1, ""}, {INT_MIN, ""}};

TEST_F(MulticastRow, AnInterfaceIsNamedByItsIndex) {
    for (const IndexCase& given : indexCases) {
        EXPECT_EQ(nameOf(given.index), given.name) << given.index;
        EXPECT_EQ(
            MulticastStreamInfo::getInterfaceNameByIndex(std::to_string(given.index), files_.ipVif.path()),
            given.name)
            << given.index;
    }
}

struct TableCase {
    std::string content;
    const char* nameOf1;
};

const TableCase tableCases[] = {
    {"", ""},
    {"\n", ""},
    {ipVifHeader, ""},
    {"1 header\n", ""}, // the first line is none of an interface
    {"1 header\n1 eth1\n", "eth1"},
    {"\n1 eth1\n", "eth1"},
    {"header\n1 eth1", "eth1"},
    {"header\n1 eth1\r\n", "eth1"},
    {"header\n  \t1\t \teth1\t0 0\n", "eth1"},
    {"header\n\n   \n0 eth0\n\n1 eth1\n", "eth1"},
    {"header\n1 first\n1 second\n", "first"},
    {"header\n1\n1 second\n", ""}, // an interface without a name
    {"header\n01 eth1\n+1 eth1\n1x eth1\n10 eth1\n11 eth1\n", ""},
    {"header\n1:eth1\n", ""},
    {"header\n1 \xFF\x80\n", "\xFF\x80"},
    {std::string("header\n1 eth1\0"
                 "23\n",
                 17),
     "eth1"},
    {std::string("header\n\0\n1 eth1\n", 16), "eth1"},
    // a long line is cut, and its rest is no line of its own
    {"header\n0 " + std::string(253, 'x') + "1 eth1\n1 next\n", "next"},
    {"header\n0 " + std::string(252, 'x') + "\n1 next\n", "next"},
    {"header\n0 " + std::string(253, 'x') + "\n1 next\n", "next"},
    {"header\n0 " + std::string(254, 'x') + "\n1 next\n", "next"},
    {"header\n0 " + std::string(10000, 'x') + "\n1 next\n", "next"},
    {std::string(10000, 'h') + "\n1 next\n", "next"},
    {"header\n" + std::string(254, ' ') + "1 far\n", ""},
    {"header\n" + std::string(249, ' ') + "1 near\n", "near"},
    {"header\n" + std::string(250, ' ') + "1 near\n", "nea"},
};

TEST_F(MulticastRow, TheInterfaceTableIsReadLineByLine) {
    for (const TableCase& given : tableCases) {
        files_.ipVif.write(given.content);
        EXPECT_EQ(nameOf(1), given.nameOf1) << given.content;
    }
}

TEST_F(MulticastRow, ADirectoryIsNoInterfaceTable) {
    const std::string directory = files_.directory.path();
    EXPECT_EQ(MulticastStreamInfo::getInterfaceNameByIndex(0, directory), "");
    EXPECT_EQ(MulticastStreamInfo::getInterfaceNameByIndex(0, ""), "");
}

TEST_F(MulticastRow, ANegativeIndexDoesNotReadTheTable) {
    const OpenedFiles opened(files_.directory.path());
    EXPECT_EQ(nameOf(-1), "");
    EXPECT_THAT(opened.names(), IsEmpty());
}

} // namespace
