#include "store/filewatch.h"
#include "support/loweredlimit.h"
#include "support/temporarydirectory.h"

#include <cerrno>
#include <filesystem>
#include <optional>

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using store::FileWatch;

class FileWatchTest : public testing::Test {
protected:
    FileWatchTest() {
        writeFile(path, "content");
        EXPECT_TRUE(watch.add(path));
    }

    bool wakesUp() const {
        pollfd watched{watch.descriptor(), POLLIN, 0};
        return poll(&watched, 1, 0) == 1;
    }

    const TemporaryDirectory directory;
    const std::string path = directory.path("file");
    FileWatch watch;
};

TEST_F(FileWatchTest, NothingHappenedAtFirst) {
    EXPECT_FALSE(wakesUp());
    EXPECT_FALSE(watch.takeChanges());
}

TEST_F(FileWatchTest, RemovedFileIsNoticedOnce) {
    std::filesystem::remove(path);

    EXPECT_TRUE(wakesUp());
    EXPECT_TRUE(watch.takeChanges());
    EXPECT_FALSE(wakesUp());
    EXPECT_FALSE(watch.takeChanges());
}

TEST_F(FileWatchTest, RemovedFileIsNoticedWhileItIsInUse) {
    const std::ifstream inUse(path);
    std::filesystem::remove(path);

    EXPECT_TRUE(watch.takeChanges());
}

TEST_F(FileWatchTest, MovedFileIsNoticedThereAndBack) {
    std::filesystem::rename(path, directory.path("elsewhere"));
    EXPECT_TRUE(watch.takeChanges());

    std::filesystem::rename(directory.path("elsewhere"), path);
    EXPECT_TRUE(watch.takeChanges());
}

TEST_F(FileWatchTest, ReplacedFileIsNoticed) {
    writeFile(directory.path("new"), "new");
    std::filesystem::rename(directory.path("new"), path);

    EXPECT_TRUE(watch.takeChanges());
}

TEST_F(FileWatchTest, OtherRightsAreNoticed) {
    ASSERT_EQ(chmod(path.c_str(), 0666), 0);

    EXPECT_TRUE(watch.takeChanges());
}

TEST_F(FileWatchTest, WritingAndOtherFilesWakeNobody) {
    writeFile(path, "longer than it was");
    writeFile(directory.path("other"), "");
    std::filesystem::remove(directory.path("other"));

    EXPECT_FALSE(wakesUp());
}

TEST_F(FileWatchTest, FileThatIsAddedAgainIsWatchedInTheOldOnesPlace) {
    std::filesystem::rename(path, directory.path("old"));
    writeFile(path, "new");
    ASSERT_TRUE(watch.add(path));
    EXPECT_TRUE(watch.takeChanges());

    std::filesystem::remove(directory.path("old"));
    EXPECT_FALSE(watch.takeChanges());
    std::filesystem::remove(path);
    EXPECT_TRUE(watch.takeChanges());
}

TEST_F(FileWatchTest, FileThatComesAgainAfterItsRemovalCanBeAdded) {
    std::filesystem::remove(path);
    EXPECT_TRUE(watch.takeChanges());
    writeFile(path, "new");

    ASSERT_TRUE(watch.add(path));
    std::filesystem::remove(path);
    EXPECT_TRUE(watch.takeChanges());
}

TEST_F(FileWatchTest, LinkIsWatchedItself) {
    std::filesystem::create_symlink(path, directory.path("link"));
    FileWatch links;
    ASSERT_TRUE(links.add(directory.path("link")));

    std::filesystem::remove(path);
    EXPECT_FALSE(links.takeChanges());
    std::filesystem::remove(directory.path("link"));
    EXPECT_TRUE(links.takeChanges());
}

TEST_F(FileWatchTest, MissingFileCannotBeWatched) {
    EXPECT_FALSE(watch.add(directory.path("none")));
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(FileWatchTest, WithoutADescriptorNothingIsWatchedAndNothingElseHappens) {
    std::optional<LoweredLimit> none(std::in_place, RLIMIT_NOFILE, 0);
    FileWatch blind;
    none.reset();

    EXPECT_LT(blind.descriptor(), 0);
    EXPECT_FALSE(blind.add(path));
    EXPECT_EQ(errno, EMFILE);
    EXPECT_FALSE(blind.takeChanges());
}

} // namespace
