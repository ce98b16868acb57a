#include "orv/daemon.h"
#include "unit/orv/capture.h"
#include "unit/orv/daemonfixture.h"

#include <csignal>
#include <filesystem>
#include <functional>
#include <sstream>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

using test::contentOf;
using test::ownPidLine;

// Starts `body` in a daemonised process, which ends when the test does. What the caller of daemonize left
// behind, its exit status and its standard error, and what the body tells come back through pipes.
class DaemonizeTest : public test::DaemonTest {
protected:
    // The daemons become children of this process, so that none outlives its test.
    DaemonizeTest() { prctl(PR_SET_CHILD_SUBREAPER, 1); }
    ~DaemonizeTest() override {
        keepAlive_.closeWriter();
        while (wait(nullptr) > 0) {
        }
    }

    void start(const std::function<void(ORV_Daemon&)>& body) {
        caller_ = inChild([&] {
            dup2(standardError_.writer(), STDERR_FILENO);
            keepAlive_.closeWriter();
            standardError_.closeWriter();
            ORV_Daemon daemon = daemonHere();
            if (ORV_Daemon_daemonize(&daemon) != 0)
                return 99;
            body(daemon);
            return 0;
        });
    }

    void waitForTheEndOfTheTest() const { (void)keepAlive_.readThrough('\n'); }

    pid_t caller_ = -1;
    test::Pipe standardError_;
    test::Pipe facts_;
    test::Pipe keepAlive_;
};

TEST_F(DaemonizeTest, CallerReturnsOnlyWhenTheFileIsWritten) {
    start([&](ORV_Daemon& daemon) {
        if (ORV_Daemon_createPidFile(&daemon) == 0)
            facts_.put(ownPidLine());
        waitForTheEndOfTheTest();
    });

    EXPECT_EQ(exitStatusOf(caller_), 0);

    const std::string content = contentOf(file_);
    EXPECT_EQ(content, facts_.readThrough('\n'));
    EXPECT_EQ(standardError_.readAll(), "");
}

TEST_F(DaemonizeTest, CallerHearsAReasonOfTheDaemonsOwn) {
    start([](ORV_Daemon& daemon) { ORV_Daemon_reportFailure(&daemon, "no configuration to be had"); });

    EXPECT_EQ(exitStatusOf(caller_), 1);

    EXPECT_EQ(standardError_.readAll(), "no configuration to be had\n");
}

TEST_F(DaemonizeTest, CallerWaitsUntilThen) {
    start([&](ORV_Daemon& daemon) {
        facts_.put("daemonised\n");
        waitForTheEndOfTheTest();
        (void)ORV_Daemon_createPidFile(&daemon);
    });
    ASSERT_EQ(facts_.readThrough('\n'), "daemonised\n");

    EXPECT_EQ(waitpid(caller_, nullptr, WNOHANG), 0);

    keepAlive_.closeWriter();
    EXPECT_EQ(exitStatusOf(caller_), 0);
}

TEST_F(DaemonizeTest, DaemonHasLeftItsSurroundings) {
    start([&](ORV_Daemon& daemon) {
        std::ostringstream facts;
        facts << fs::current_path().string();
        for (const char* stream : {"0", "1", "2"})
            facts << ' ' << fs::read_symlink(fs::path("/proc/self/fd") / stream).string();
        facts << (getsid(0) != getpid() ? " no leader" : " leader");
        facts << (open("/dev/tty", O_RDWR | O_CLOEXEC) < 0 ? " no terminal" : " terminal");
        facts << ' ' << std::oct << umask(0) << '\n';
        facts_.put(facts.str());
        (void)ORV_Daemon_createPidFile(&daemon);
    });

    EXPECT_EQ(facts_.readThrough('\n'), "/ /dev/null /dev/null /dev/null no leader no terminal 22\n");
    EXPECT_EQ(exitStatusOf(caller_), 0);
}

TEST_F(DaemonizeTest, CallerSaysThatAnotherInstanceRuns) {
    ORV_Daemon running = daemonHere();
    ASSERT_EQ(ORV_Daemon_createPidFile(&running), 0);

    start([](ORV_Daemon& daemon) { (void)ORV_Daemon_createPidFile(&daemon); });

    EXPECT_EQ(exitStatusOf(caller_), 1);
    EXPECT_EQ(standardError_.readAll(), "horad is already running\n");
    ORV_Daemon_deletePidFile(&running);
}

TEST_F(DaemonizeTest, CallerSaysWhyTheFileCantBeWritten) {
    fs::create_directory(file_);

    start([](ORV_Daemon& daemon) { (void)ORV_Daemon_createPidFile(&daemon); });

    EXPECT_EQ(exitStatusOf(caller_), 1);
    EXPECT_EQ(standardError_.readAll(), "can't write " + file_.string() + ": Is a directory\n");
}

TEST_F(DaemonizeTest, CallerSaysThatTheDaemonEnded) {
    start([](ORV_Daemon&) { std::raise(SIGKILL); });

    EXPECT_EQ(exitStatusOf(caller_), 1);
    EXPECT_EQ(standardError_.readAll(), "the daemon ended before it was ready\n");
}

TEST_F(DaemonizeTest, DaemonOutlivesACallerThatWasKilled) {
    test::Pipe go;
    start([&](ORV_Daemon& daemon) {
        facts_.put("daemonised\n");
        go.closeWriter();
        (void)go.readThrough('\n');
        facts_.put(ORV_Daemon_createPidFile(&daemon) == 0 ? "created\n" : "failed\n");
    });
    ASSERT_EQ(facts_.readThrough('\n'), "daemonised\n");

    kill(caller_, SIGKILL);
    EXPECT_EQ(exitStatusOf(caller_), -1);
    go.closeWriter();

    EXPECT_EQ(facts_.readThrough('\n'), "created\n");
}

TEST_F(DaemonizeTest, WorksWithStandardStreamsThatAreClosed) {
    caller_ = inChild([&] {
        for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
            close(stream);
        ORV_Daemon daemon = daemonHere();
        if (ORV_Daemon_daemonize(&daemon) != 0)
            return 99;
        facts_.put(ORV_Daemon_createPidFile(&daemon) == 0 ? "created\n" : "failed\n");
        return 0;
    });

    EXPECT_EQ(exitStatusOf(caller_), 0);
    EXPECT_EQ(facts_.readThrough('\n'), "created\n");
}

TEST_F(DaemonizeTest, WithoutADescriptorAboveTheStandardStreamsFailsAndLeavesNothingOpen) {
    EXPECT_EQ(exitStatusOf(inChild([&] {
                  ORV_Daemon daemon = daemonHere();
                  (void)close(STDIN_FILENO);
                  (void)close(STDOUT_FILENO);
                  const rlimit few{3, 3};
                  if (setrlimit(RLIMIT_NOFILE, &few) != 0)
                      return 99;
                  if (ORV_Daemon_daemonize(&daemon) == 0)
                      return 1;
                  const bool closed = fcntl(STDIN_FILENO, F_GETFD) < 0 && fcntl(STDOUT_FILENO, F_GETFD) < 0;
                  return closed && std::string(daemon.failedStep) == "socketpair" ? 0 : 2;
              })),
              0);
}

TEST_F(DaemonizeTest, OtherDescriptorsStayOpen) {
    start([&](ORV_Daemon& daemon) {
        facts_.put("still open\n");
        (void)ORV_Daemon_createPidFile(&daemon);
    });

    EXPECT_EQ(facts_.readThrough('\n'), "still open\n");
    EXPECT_EQ(exitStatusOf(caller_), 0);
}

class InheritedDescriptors : public test::DaemonTest {
protected:
    // How many above the standard streams are open, below a number that no process here reaches.
    static int openAboveTheStandardStreams() {
        int open = 0;
        for (int descriptor = STDERR_FILENO + 1; descriptor < end; ++descriptor)
            if (fcntl(descriptor, F_GETFD) >= 0)
                ++open;
        return open;
    }

    static bool standardStreamsAreOpen() {
        return fcntl(STDIN_FILENO, F_GETFD) >= 0 && fcntl(STDOUT_FILENO, F_GETFD) >= 0 &&
               fcntl(STDERR_FILENO, F_GETFD) >= 0;
    }

    // 0 where nothing but the standard streams is left.
    static int statusOfClosing() {
        ORV_Daemon_closeInheritedDescriptors();
        return openAboveTheStandardStreams() == 0 && standardStreamsAreOpen() ? 0 : 1;
    }

    static constexpr int end = 512;
};

TEST_F(InheritedDescriptors, AreClosedAndTheStandardStreamsStay) {
    EXPECT_EQ(exitStatusOf(inChild([] {
                  for (const int descriptor : {3, 4, 7, 200, end - 1})
                      (void)dup2(STDIN_FILENO, descriptor);
                  return statusOfClosing();
              })),
              0);
}

TEST_F(InheritedDescriptors, AreClosedButForTheOneThatIsKept) {
    EXPECT_EQ(exitStatusOf(inChild([] {
                  for (const int descriptor : {3, 4, 7})
                      (void)dup2(STDIN_FILENO, descriptor);
                  ORV_Daemon_closeInheritedDescriptors(4);
                  return fcntl(4, F_GETFD) >= 0 && openAboveTheStandardStreams() == 1 ? 0 : 1;
              })),
              0);
}

TEST_F(InheritedDescriptors, AreClosedWhereNoneIsLeftToAskTheKernelWith) {
    EXPECT_EQ(exitStatusOf(inChild([] {
                  const rlimit few{end, end};
                  if (setrlimit(RLIMIT_NOFILE, &few) != 0)
                      return 99;
                  while (dup(STDIN_FILENO) >= 0) {
                  }
                  return statusOfClosing();
              })),
              0);
}

} // namespace
