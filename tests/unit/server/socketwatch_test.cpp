#include "store/server/socketwatch.h"
#include "support/loweredlimit.h"
#include "support/temporarydirectory.h"

#include <filesystem>

#include <gmock/gmock.h>
#include <sys/stat.h>

namespace {

using testing::HasSubstr;
namespace fs = std::filesystem;

class SocketWatchTest : public testing::Test {
protected:
    // What is logged once the events that are there are handled.
    std::string logged() {
        testing::internal::CaptureStderr();
        dispatcher.handleEvents(0);
        return testing::internal::GetCapturedStderr();
    }

    const TemporaryDirectory directory;
    const std::string path = directory.path("socket");
    velta::net::EventDispatcher dispatcher;
    const store::ListeningSocket socket{path, std::nullopt};
    const store::SocketWatch watch{dispatcher, socket};
};

TEST_F(SocketWatchTest, RemovedSocketIsLoggedOnce) {
    fs::remove(path);

    EXPECT_THAT(logged(), HasSubstr(" error cfgserver: no new client finds the socket " + path +
                                    ": it was removed or moved away\n"));
    writeFile(directory.path("other"), "");
    EXPECT_EQ(logged(), "");
}

TEST_F(SocketWatchTest, ReplacedSocketIsLoggedWithTheOtherOwner) {
    writeFile(directory.path("other"), "");
    fs::rename(directory.path("other"), path);

    EXPECT_THAT(logged(), HasSubstr("something else is in its place, of user "));
}

TEST_F(SocketWatchTest, SocketThatComesBackIsLogged) {
    fs::rename(path, directory.path("elsewhere"));
    EXPECT_THAT(logged(), HasSubstr("removed or moved away"));
    fs::rename(directory.path("elsewhere"), path);

    EXPECT_THAT(logged(), HasSubstr(" info cfgserver: the socket " + path + " is back in its place\n"));
}

TEST_F(SocketWatchTest, OtherRightsAreNobodysLoss) {
    ASSERT_EQ(chmod(path.c_str(), 0666), 0);

    EXPECT_EQ(logged(), "");
}

TEST_F(SocketWatchTest, SocketThatCannotBeWatchedIsSaidAndServedAllTheSame) {
    testing::internal::CaptureStderr();
    {
        const LoweredLimit none(RLIMIT_NOFILE, 0);
        const store::SocketWatch blind(dispatcher, socket);
    }

    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr("nobody will be told if the socket " + path + " is removed: Too many open files"));
}

} // namespace
