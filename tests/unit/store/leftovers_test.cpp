#include "store/leftovers.h"
#include "support/temporarydirectory.h"

#include <filesystem>
#include <optional>
#include <system_error>

#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using store::ScratchFolder;
namespace fs = std::filesystem;

class LeftoversTest : public testing::Test {
protected:
    // A folder as a killed process leaves it.
    std::string leave(const std::string& name) const {
        fs::create_directory(directory.path(name));
        return directory.path(name);
    }
    std::size_t remove() const {
        return store::removeLeftovers(directory.path(), "cfgserver.", {"database", "database-wal"});
    }

    const TemporaryDirectory directory;
};

TEST_F(LeftoversTest, ScratchFolderIsTheOwnersAloneAndGoneAtTheEnd) {
    std::string path;
    {
        const ScratchFolder folder(directory.path(), "cfgserver.");
        path = folder.path();
        EXPECT_EQ(path.compare(0, directory.path("cfgserver.").size(), directory.path("cfgserver.")), 0);
        EXPECT_EQ(fs::status(path).permissions(), fs::perms::owner_all);
    }
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(LeftoversTest, ScratchFolderThatCannotBeMadeIsAnError) {
    EXPECT_THROW(ScratchFolder(directory.path("none"), "cfgserver."), std::system_error);
}

TEST_F(LeftoversTest, FolderOfALivingProcessStays) {
    const ScratchFolder folder(directory.path(), "cfgserver.");
    writeFile(folder.path() + "/database", "");

    EXPECT_EQ(remove(), 0U);
    EXPECT_TRUE(fs::exists(folder.path() + "/database"));
    fs::remove(folder.path() + "/database");
}

TEST_F(LeftoversTest, FolderWithTheKnownFilesIsRemoved) {
    const std::string path = leave("cfgserver.a1B2c3");
    writeFile(path + "/database", "");
    writeFile(path + "/database-wal", "");
    (void)leave("cfgserver.empty1");

    EXPECT_EQ(remove(), 2U);
    EXPECT_TRUE(fs::is_empty(directory.path()));
}

TEST_F(LeftoversTest, FolderWithAnythingElseStaysWhole) {
    const std::string path = leave("cfgserver.a1B2c3");
    writeFile(path + "/database", "");
    writeFile(path + "/notes", "precious");

    EXPECT_EQ(remove(), 0U);
    EXPECT_TRUE(fs::exists(path + "/database"));
    EXPECT_EQ(contentOf(path + "/notes"), "precious");
}

TEST_F(LeftoversTest, KnownNameOfSomethingThatIsNoFileStays) {
    fs::create_directory(leave("cfgserver.folder") + "/database");
    writeFile(directory.path("precious"), "precious");
    fs::create_symlink(directory.path("precious"), leave("cfgserver.linked") + "/database");

    EXPECT_EQ(remove(), 0U);
    EXPECT_TRUE(fs::exists(directory.path("cfgserver.folder") + "/database"));
    EXPECT_EQ(contentOf(directory.path("cfgserver.linked") + "/database"), "precious");
}

TEST_F(LeftoversTest, LinkToAFolderStaysAndIsNotFollowed) {
    const std::string elsewhere = leave("elsewhere");
    writeFile(elsewhere + "/database", "precious");
    fs::create_symlink(elsewhere, directory.path("cfgserver.linked"));

    EXPECT_EQ(remove(), 0U);
    EXPECT_EQ(contentOf(elsewhere + "/database"), "precious");
    EXPECT_TRUE(fs::is_symlink(directory.path("cfgserver.linked")));
}

TEST_F(LeftoversTest, OtherNamesStay) {
    for (const char* name : {"cfgserver.a1B2c", "cfgserver.a1B2c3d", "cfgserver_a1B2c3", "other"})
        (void)leave(name);
    writeFile(directory.path("cfgserver.filefi"), "");

    EXPECT_EQ(remove(), 0U);
    EXPECT_EQ(std::distance(fs::directory_iterator(directory.path()), fs::directory_iterator()), 5);
}

TEST_F(LeftoversTest, FolderOfAnotherUserStays) {
    const std::string path = leave("cfgserver.a1B2c3");
    if (chown(path.c_str(), 54321, 54321) != 0)
        GTEST_SKIP() << "only root can give a folder away";

    EXPECT_EQ(remove(), 0U);
    EXPECT_TRUE(fs::exists(path));
}

TEST_F(LeftoversTest, DirectoryThatIsNotThereHasNone) {
    EXPECT_EQ(store::removeLeftovers(directory.path("none"), "cfgserver.", {}), 0U);
}

} // namespace
