#include "probes/multicaststreams.h"
#include "probes/systemidle.h"
#include "simulation/tables.h"
#include "support/kernelfiles.h"
#include "tools/horactl/forecast.h"
#include "tools/horactl/linefiles.h"
#include "unit/horactl/forecasthouse.h"

#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>

namespace tools::horactl::testing {

namespace {

using Paths = std::vector<const char*>;

Paths probedPaths() {
    return {orv::kvenvSipCallFile, orv::ipMrCacheFile, orv::ip6MrCacheFile};
}

bool callRuns() {
    orv::simulation::Tables none;
    return orv::isSipCallActive(none);
}

TEST(LineFiles, SayWhatTheyAreTold) {
    LineFiles line;
    EXPECT_FALSE(callRuns());
    EXPECT_FALSE(orv::isIPTVStreamRunning());
    for (const bool call : {true, false})
        for (const bool stream : {false, true}) {
            line.setCall(call);
            line.setStream(stream);
            EXPECT_EQ(callRuns(), call);
            EXPECT_EQ(orv::isIPTVStreamRunning(), stream);
        }
}

TEST(LineFiles, HideWhatTheMachineSays) {
    const KernelFiles machine;
    machine.setCalls("2");
    machine.setStream(true);
    const LineFiles line;
    EXPECT_FALSE(callRuns());
    EXPECT_FALSE(orv::isIPTVStreamRunning());
}

TEST(LineFiles, GiveTheProbesTheirPathsBack) {
    const Paths before = probedPaths();
    {
        const LineFiles line;
        EXPECT_NE(probedPaths(), before);
    }
    EXPECT_EQ(probedPaths(), before);
    {
        Forecast forecast(quietHousehold(), {noon});
        forecast.runUntil(noon + 10);
        EXPECT_NE(probedPaths(), before);
    }
    EXPECT_EQ(probedPaths(), before);
}

TEST(LineFiles, LeaveNoFileOpen) {
    const auto nextDescriptor = [] {
        const int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
        close(descriptor);
        return descriptor;
    };
    const int before = nextDescriptor();
    { const LineFiles line; }
    EXPECT_EQ(nextDescriptor(), before);
}

} // namespace

} // namespace tools::horactl::testing
