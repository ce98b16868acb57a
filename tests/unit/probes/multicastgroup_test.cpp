#include "probes/multicaststreams.h"
#include "support/kernelfiles.h"

#include <string>

#include <gtest/gtest.h>

namespace {

using orv::MulticastStreamInfo;

class MulticastGroup : public testing::Test {
protected:
    KernelFiles files_; // no interfaces
};

struct Case {
    const char* group;
    bool television;
};

const Case cases[] = {
    {"00000000", true},
    {"00000001", true},
    {"010101EF", true}, // 239.1.1.1 as a little-endian machine prints it
    {"FB0000E0", true},
    {"7FFFFFFE", true},
    {"7FFFFFFF", true},
    // from here on each counts as 7FFFFFFF, those of the local network too
    {"80000000", true},
    {"E0000000", true},
    {"E00000FB", true},
    {"E0000100", true},
    {"E1000001", true},
    {"E8000001", true},
    {"EF000000", true},
    {"EF010101", true},
    {"ef010101", true},
    {"FFFFFFFF", true},
    {"100000000", true},
    {"1E0000000", true},
    {"FFFFFFFFFFFFFFFF", true},
    {"FFFFFFFFE0000000", true},
    {"10000000000000000E0000000", true},
    // a sign makes the ranges reachable: 224.0.0.0/24
    {"-20000001", true},
    {"-20000000", false},
    {"-1FFFFF05", false}, // 224.0.0.251
    {"-1FFFFF01", false},
    {"-1FFFFF00", true},
    {"-1EFFFFFF", true}, // 225.0.0.1
    // and 239.0.0.0/8
    {"-11000001", true},
    {"-11000000", false},
    {"-10FEFEFF", false}, // 239.1.1.1
    {"-10000001", false},
    {"-10000000", true},
    {"-1", true},
    {"-7FFFFFFF", true},
    {"-80000000", true},
    {"-80000001", true},
    {"-E0000000", true},
    {"-FFFFFFFFFFFFFFFFFFFF", true},
    // as the C library reads hexadecimal numbers
    {"-0x20000000", false},
    {"-20000000.5", false},
    {"-20000000g", false},
    {"-2000000", true},
    {"0xE0000000", true},
    {"+", true},
    {"xyz", true},
    {"224.0.0.1", true},
};

TEST_F(MulticastGroup, IsTelevisionButForTheGroupsOfTheLocalNetwork) {
    for (const Case& given : cases) {
        const MulticastStreamInfo stream(ipRow(given.group), MulticastStreamInfo::IPv4);
        EXPECT_EQ(stream.isIPTV(), given.television) << given.group;
    }
}

TEST_F(MulticastGroup, IsAlwaysTelevisionInIPv6) {
    for (const char* group : {"ff02:0000:0000:0000:0000:0000:0000:00fb", "-20000000", "-11000000", "0", "x"})
        for (const auto version : {MulticastStreamInfo::IPv6, MulticastStreamInfo::Both})
            EXPECT_TRUE(MulticastStreamInfo(ipRow(group), version).isIPTV()) << group;
}

TEST_F(MulticastGroup, CountsByTheRowThatWasParsedLast) {
    MulticastStreamInfo stream(ipRow("-20000000"), MulticastStreamInfo::IPv4);
    EXPECT_FALSE(stream.isIPTV());

    stream.doLoad(ipRow("-20000000"), MulticastStreamInfo::IPv6);
    EXPECT_TRUE(stream.isIPTV());

    stream.doLoad(ipRow("-11000000"), MulticastStreamInfo::IPv4);
    EXPECT_FALSE(stream.isIPTV());

    stream.doLoad("", MulticastStreamInfo::IPv4);
    EXPECT_TRUE(stream.isIPTV());
}

} // namespace
