#include "rows.h"
#include "support/loweredlimit.h"
#include "support/temporarydirectory.h"
#include "tools/cfgctl/childprocess.h"
#include "tools/errors.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tools::cfgctl {
namespace {

using namespace std::chrono_literals;
using testing::errorOf;
using ::testing::HasSubstr;

ChildEnd shell(const std::string& script, std::chrono::milliseconds time = 20s) {
    return runChild({"sh", "-c", script}, {time, std::nullopt, "dash"});
}

TEST(ChildProcess, ComesWithItsExitStatusAndWhatItSaid) {
    const ChildEnd end = shell("echo out; echo first >&2; echo why >&2; exit 3");
    EXPECT_EQ(end.exitStatus, 3);
    EXPECT_EQ(end.output, "out\n");
    EXPECT_EQ(complaintOf(end), "why");
    EXPECT_FALSE(end.late);
}

TEST(ChildProcess, TakesWordsAsTheyAre) {
    EXPECT_EQ(runChild({"printf", "%s", "$HOME; *"}, {20s, std::nullopt, "coreutils"}).output, "$HOME; *");
}

TEST(ChildProcess, FindsAnEmptyStandardInput) {
    EXPECT_EQ(runChild({"cat"}, {20s, std::nullopt, "coreutils"}).exitStatus, 0);
}

TEST(ChildProcess, ThatPrintsMoreThanAPipeHoldsIsReadToItsEnd) {
    EXPECT_EQ(shell("head -c 3000000 /dev/zero; head -c 1000000 /dev/zero >&2").output.size(), 3000000U);
}

TEST(ChildProcess, ThatPrintsWithoutEndIsEnded) {
    EXPECT_THAT(errorOf<Refused>([] { return shell("cat /dev/zero"); }),
                HasSubstr("prints more than it should"));
}

TEST(ChildProcess, ThatTakesTooLongIsEnded) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(shell("exec sleep 1000", 50ms).late);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 20s);
}

TEST(ChildProcess, ThatASignalEndsHasNoExitStatus) {
    const ChildEnd end = shell("kill -9 $$");
    EXPECT_EQ(end.exitStatus, std::nullopt);
    EXPECT_EQ(complaintOf(end), "a signal ended it");
}

TEST(ChildProcess, ThatIsNotInstalledIsToldWithItsPackage) {
    EXPECT_EQ(errorOf<Refused>([] {
                  return runChild({"no-such-program"}, {20s, std::nullopt, "no-such-package"});
              }),
              "no-such-program is not installed (it comes with the package no-such-package)");
}

TEST(ChildProcess, ThatCanNotBeBegunForLackOfDescriptorsSaysSo) {
    std::string why;
    {
        const LoweredLimit none(RLIMIT_NOFILE, 0);
        why = errorOf<Refused>([] { return shell("exit 0"); });
    }
    EXPECT_EQ(why, "pipe: Too many open files");
    EXPECT_EQ(shell("exit 0").exitStatus, 0);
}

// The interpreter that its first line names is missing.
TEST(ChildProcess, ThatCanNotBecomeItsProgramSaysWhy) {
    const TemporaryDirectory folder;
    writeFile(folder.path("broken-program"), "#!/no/such/interpreter\n");
    std::filesystem::permissions(folder.path("broken-program"), std::filesystem::perms(0755));
    const std::string before = std::getenv("PATH");
    ASSERT_EQ(setenv("PATH", folder.path().c_str(), 1), 0);
    const ChildEnd end = runChild({"broken-program"}, {20s, std::nullopt, "none"});
    ASSERT_EQ(setenv("PATH", before.c_str(), 1), 0);
    EXPECT_EQ(end.exitStatus, 127);
    EXPECT_EQ(complaintOf(end), "No such file or directory");
}

} // namespace
} // namespace tools::cfgctl
