#include "tools/storetables.h"

#include <gtest/gtest.h>

namespace tools {
namespace {

using velta::protocol::EResultCode;
namespace code = velta::protocol::code;

TEST(FailureText, OfAWrongValueIsWhatTheStoreSaysOfIt) {
    const std::string detail = "WlanTimePlans.2 StartWed: \"2230\" is not a time of day, HH:MM or HH:MM:SS";
    EXPECT_EQ(failureText(EResultCode(code::wrongKind, detail)), detail);
}

TEST(FailureText, OfAnyOtherRefusalSaysWhatItIs) {
    EXPECT_EQ(failureText(code::wrongKind), "value of the wrong kind");
    EXPECT_EQ(failureText(EResultCode(code::noSuchRow, "TimePlans.7")), "no such row: TimePlans.7");
    EXPECT_EQ(failureText(EResultCode(code::notConnected, "closed by the store")),
              "the connection to the configuration store is lost");
}

} // namespace
} // namespace tools
