#include "support/capturedlog.h"
#include "support/temporarydirectory.h"
#include "tools/errors.h"
#include "tools/horactl/weekcommand.h"
#include "unit/horactl/forecasthouse.h"

#include <optional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace tools::horactl::testing {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace {

using Name = std::optional<std::string>;

class WeekCommand : public ::testing::Test {
protected:
    // What is printed.
    std::string week(const Name& svgFile, const Name& htmlFile) const {
        const fakes::CapturedOutput output(STDOUT_FILENO);
        weekCommand(questionOf(household), noon, svgFile, htmlFile);
        return output.text();
    }
    std::string refusal(const Name& svgFile, const Name& htmlFile) const {
        try {
            (void)week(svgFile, htmlFile);
        } catch (const Refused& refused) {
            return refused.what();
        }
        return {};
    }

    const Household household = quietHousehold();
    const TemporaryDirectory folder;
    const fakes::LocalZone zone{"UTC"};
};

TEST_F(WeekCommand, PrintsBarsWhereNoFileIsWanted) {
    EXPECT_THAT(week({}, {}), HasSubstr("Mon  2 Mar"));
}

TEST_F(WeekCommand, WritesAPictureAndAPageAndPrintsNothing) {
    EXPECT_EQ(week(folder.path("week.svg"), folder.path("week.html")), "");
    EXPECT_THAT(contentOf(folder.path("week.svg")), StartsWith("<?xml "));
    EXPECT_THAT(contentOf(folder.path("week.svg")), EndsWith("</svg>\n"));
    EXPECT_THAT(contentOf(folder.path("week.html")), StartsWith("<!DOCTYPE html>"));
    EXPECT_THAT(contentOf(folder.path("week.html")), EndsWith("</html>\n"));
}

TEST_F(WeekCommand, AFileThatCanNotBeWrittenIsNamed) {
    const std::string missing = folder.path("no/folder");
    EXPECT_EQ(refusal(missing, {}), missing + ": No such file or directory");
    EXPECT_EQ(refusal({}, missing), missing + ": No such file or directory");
    EXPECT_EQ(refusal("/dev/full", {}), "/dev/full: No space left on device");
}

} // namespace

} // namespace tools::horactl::testing
