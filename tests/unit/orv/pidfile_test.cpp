#include "orv/daemon.h"
#include "support/loweredlimit.h"
#include "unit/orv/capture.h"
#include "unit/orv/daemonfixture.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

using test::contentOf;
using test::ownPidLine;

using PidFileTest = test::DaemonTest;

TEST_F(PidFileTest, HoldsTheProcessId) {
    ORV_Daemon daemon = daemonHere();

    ASSERT_EQ(ORV_Daemon_createPidFile(&daemon), 0);

    EXPECT_EQ(contentOf(file_), ownPidLine());
    ORV_Daemon_deletePidFile(&daemon);
}

TEST_F(PidFileTest, IsReadableForAllAndNotInherited) {
    ORV_Daemon daemon = daemonHere();
    const mode_t before = umask(022);

    ASSERT_EQ(ORV_Daemon_createPidFile(&daemon), 0);

    umask(before);
    EXPECT_EQ(fs::status(file_).permissions(), static_cast<fs::perms>(0600));
    EXPECT_EQ(fcntl(daemon.lockedFile, F_GETFD), FD_CLOEXEC);
    ORV_Daemon_deletePidFile(&daemon);
}

TEST_F(PidFileTest, IsOccupiedWhileItIsHeld) {
    ORV_Daemon daemon = daemonHere();
    ORV_Daemon other = daemonHere();
    EXPECT_EQ(ORV_Daemon_occupiedPidFile(&other), 0) << "missing";

    ASSERT_EQ(ORV_Daemon_createPidFile(&daemon), 0);
    EXPECT_NE(ORV_Daemon_occupiedPidFile(&other), 0) << "held";

    ORV_Daemon_deletePidFile(&daemon);
    EXPECT_EQ(ORV_Daemon_occupiedPidFile(&other), 0) << "deleted";
}

TEST_F(PidFileTest, StaleOneIsNotOccupiedAndStays) {
    std::ofstream(file_) << getpid() << '\n'; // of a process that lives, but is no daemon
    const ORV_Daemon daemon = daemonHere();

    EXPECT_EQ(ORV_Daemon_occupiedPidFile(&daemon), 0);

    EXPECT_EQ(contentOf(file_), ownPidLine());
}

TEST_F(PidFileTest, StaleOneIsTakenOver) {
    std::ofstream(file_) << "1234567890 and much more than a process id\n";
    ORV_Daemon daemon = daemonHere();

    ASSERT_EQ(ORV_Daemon_createPidFile(&daemon), 0);

    EXPECT_EQ(contentOf(file_), ownPidLine());
    ORV_Daemon_deletePidFile(&daemon);
}

TEST_F(PidFileTest, HeldByAnotherIsRefusedAndUntouched) {
    ORV_Daemon daemon = daemonHere();
    ORV_Daemon other = daemonHere();
    ASSERT_EQ(ORV_Daemon_createPidFile(&daemon), 0);

    errno = 0;
    EXPECT_NE(ORV_Daemon_createPidFile(&other), 0);

    EXPECT_EQ(errno, EWOULDBLOCK);
    ORV_Daemon_deletePidFile(&other);
    EXPECT_EQ(contentOf(file_), ownPidLine());
    EXPECT_NE(ORV_Daemon_occupiedPidFile(&other), 0);
    ORV_Daemon_deletePidFile(&daemon);
}

TEST_F(PidFileTest, LookOfAnotherStartDoesNotPassForARunningInstance) {
    // given somebody who looks, just now, whether the file is occupied
    std::ofstream(file_) << "1\n";
    test::Pipe looking;
    const int look = open(file_.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(look, LOCK_SH), 0);
    ORV_Daemon daemon = daemonHere();
    const pid_t starter = inChild([&] {
        close(look);
        looking.put("started\n");
        return ORV_Daemon_createPidFile(&daemon) == 0 ? 0 : 1;
    });
    EXPECT_EQ(looking.readThrough('\n'), "started\n");

    // when the look is over
    flock(look, LOCK_UN);
    close(look);

    EXPECT_EQ(exitStatusOf(starter), 0);
}

TEST_F(PidFileTest, OneOfManyStartsAtTheSameMomentWins) {
    constexpr int starts = 4;
    test::Pipe begin;
    test::Pipe results;
    test::Pipe end;
    std::array<pid_t, starts> children{};
    for (pid_t& child : children)
        child = inChild([&] {
            begin.closeWriter();
            end.closeWriter();
            (void)begin.readThrough('\n');
            ORV_Daemon daemon = daemonHere();
            const bool won =
                ORV_Daemon_occupiedPidFile(&daemon) == 0 && ORV_Daemon_createPidFile(&daemon) == 0;
            results.put(won ? "1" : "0");
            (void)end.readThrough('\n');
            return 0;
        });

    begin.closeWriter();

    std::string outcomes;
    for (int i = 0; i < starts; ++i)
        outcomes += results.readByte();
    std::sort(outcomes.begin(), outcomes.end());
    EXPECT_EQ(outcomes, "0001");
    end.closeWriter();
    for (const pid_t child : children)
        EXPECT_EQ(exitStatusOf(child), 0);
}

TEST_F(PidFileTest, PartOfAProcessIdIsNotLeftOnAFullDisk) {
    EXPECT_EQ(exitStatusOf(inChild([&] {
                  const FileSizeLimit oneByte(1);
                  ORV_Daemon daemon = daemonHere();
                  const int result = ORV_Daemon_createPidFile(&daemon);
                  return result != 0 && errno == ENOSPC && daemon.lockedFile < 0 ? 0 : 1;
              })),
              0);
    EXPECT_FALSE(fs::exists(file_));
}

TEST_F(PidFileTest, DiesWithItsHolder) {
    ORV_Daemon daemon = daemonHere();
    ASSERT_EQ(exitStatusOf(inChild([&] { return ORV_Daemon_createPidFile(&daemon); })), 0);

    EXPECT_TRUE(fs::exists(file_));
    EXPECT_EQ(ORV_Daemon_occupiedPidFile(&daemon), 0);
}

TEST_F(PidFileTest, DeletingRemovesTheFile) {
    ORV_Daemon daemon = daemonHere();
    ASSERT_EQ(ORV_Daemon_createPidFile(&daemon), 0);

    ORV_Daemon_deletePidFile(&daemon);

    EXPECT_FALSE(fs::exists(file_));
    EXPECT_EQ(daemon.lockedFile, -1);
}

TEST_F(PidFileTest, DeletingIsHarmlessForWhoDoesNotHoldIt) {
    std::ofstream(file_) << "1\n";
    ORV_Daemon never;
    ORV_Daemon daemon = daemonHere();

    ORV_Daemon_deletePidFile(&never);
    ORV_Daemon_deletePidFile(&daemon);

    EXPECT_EQ(contentOf(file_), "1\n");
}

TEST_F(PidFileTest, DeletingSparesAFileThatTookItsPlace) {
    ORV_Daemon daemon = daemonHere();
    ASSERT_EQ(ORV_Daemon_createPidFile(&daemon), 0);
    fs::remove(file_);
    std::ofstream(file_) << "another\n";

    ORV_Daemon_deletePidFile(&daemon);

    EXPECT_EQ(contentOf(file_), "another\n");
}

TEST_F(PidFileTest, LinkIsNotFollowed) {
    const fs::path target = directory_ / "precious";
    std::ofstream(target) << "precious\n";
    fs::create_symlink(target, file_);
    ORV_Daemon daemon = daemonHere();

    EXPECT_NE(ORV_Daemon_createPidFile(&daemon), 0);

    EXPECT_EQ(errno, ELOOP);
    EXPECT_EQ(contentOf(target), "precious\n");
}

TEST_F(PidFileTest, PathThatIsTooLongIsRefused) {
    ORV_Daemon daemon;
    ORV_Daemon_construct(&daemon, "horad", ("/tmp/" + std::string(300, 'x')).c_str());

    EXPECT_EQ(ORV_Daemon_occupiedPidFile(&daemon), 0);
    EXPECT_NE(ORV_Daemon_createPidFile(&daemon), 0);

    EXPECT_EQ(errno, ENAMETOOLONG);
}

} // namespace
