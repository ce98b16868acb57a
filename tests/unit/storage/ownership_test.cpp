#include "store/storage/database.h"
#include "store/storage/ownership.h"
#include "support/temporarydirectory.h"
#include "unit/storage/testtables.h"

#include <functional>

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using testing::AllOf;
using testing::HasSubstr;
namespace fs = std::filesystem;

constexpr uid_t stranger = 54321;
constexpr auto ownersAlone = fs::perms(0600);

constexpr const char* suffixes[] = {"", "-wal", "-shm", "-journal"};

std::string errorOf(const std::string& path) {
    try {
        const store::Database database(schemaOf(testTables), path);
    } catch (const store::StorageError& error) {
        return error.what();
    }
    return "";
}

// A database that was in order, and what another user could have done to it.
class OwnershipTest : public testing::Test {
protected:
    OwnershipTest() {
        { const store::Database database(schemaOf(testTables), path); }
        for (const char* suffix : {"-wal", "-shm", "-journal"})
            writeFile(path + suffix, "");
        for (const char* suffix : suffixes)
            fs::permissions(path + suffix, ownersAlone);
    }

    void expectRefused(const testing::Matcher<const std::string&>& reason) {
        const std::string before = contentOf(path);
        EXPECT_THAT(errorOf(path), AllOf(HasSubstr(path), reason));
        EXPECT_EQ(contentOf(path), before);
    }
    void openFolder() { fs::permissions(directory.path(), fs::perms(01777)); }

    const TemporaryDirectory directory;
    const std::string path = directory.path("db");
};

TEST_F(OwnershipTest, NameWithoutAFolderIsLookedAtWhereTheProgramIs) {
    const fs::path before = fs::current_path();
    fs::current_path(directory.path());
    const bool whileClosed = store::isInForeignFolder("db");
    openFolder();
    const bool whileOpen = store::isInForeignFolder("db");
    fs::current_path(before);

    EXPECT_FALSE(whileClosed);
    EXPECT_TRUE(whileOpen);
}

TEST_F(OwnershipTest, OwnLinkThatLeadsNowhereIsNobodyElses) {
    fs::create_symlink(directory.path("nowhere"), directory.path("link"));
    EXPECT_NO_THROW(store::checkOwner(directory.path("link"), "link"));
}

TEST_F(OwnershipTest, OwnFilesAreTaken) {
    EXPECT_EQ(errorOf(path), "");
}

TEST_F(OwnershipTest, FileOfAnotherUserIsRefusedWithItsOwner) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can give a file away";
    for (const char* suffix : suffixes) {
        ASSERT_EQ(chown((path + suffix).c_str(), stranger, 0), 0);
        expectRefused(AllOf(HasSubstr(path + suffix), HasSubstr("belongs to user 54321")));
        ASSERT_EQ(chown((path + suffix).c_str(), 1, 0), 0);
        expectRefused(HasSubstr("belongs to user daemon (1)"));
        ASSERT_EQ(chown((path + suffix).c_str(), 0, 0), 0);
    }
    EXPECT_EQ(errorOf(path), "");
}

TEST_F(OwnershipTest, FileThatOthersMayWriteIsRefused) {
    for (const char* suffix : suffixes) {
        for (const unsigned mode : {0620U, 0602U, 0666U}) {
            fs::permissions(path + suffix, fs::perms(mode));
            expectRefused(
                AllOf(HasSubstr(path + suffix), HasSubstr("can be written by others, its mode is 06")));
        }
        fs::permissions(path + suffix, ownersAlone);
    }
}

TEST_F(OwnershipTest, FileThatOthersMayReadIsTaken) {
    fs::permissions(path, fs::perms(0644));

    EXPECT_EQ(errorOf(path), "");
}

TEST_F(OwnershipTest, LinkIsRefusedWhereOthersMayLayOne) {
    for (const char* suffix : suffixes) {
        const TemporaryDirectory elsewhere;
        fs::rename(path + suffix, elsewhere.path("file"));
        fs::create_symlink(elsewhere.path("file"), path + suffix);
        openFolder();
        EXPECT_THAT(errorOf(path), AllOf(HasSubstr(path + suffix), HasSubstr("is a symbolic link of user"),
                                         HasSubstr("in a folder that others may write to")));
        fs::permissions(directory.path(), fs::perms(0700));
        fs::remove(path + suffix);
        fs::rename(elsewhere.path("file"), path + suffix);
    }
}

TEST_F(OwnershipTest, LinkToTheDatabaseIsTakenWhereOnlyItsOwnerWrites) {
    fs::create_symlink(path, directory.path("link"));

    EXPECT_EQ(errorOf(directory.path("link")), "");
}

TEST_F(OwnershipTest, LinkIsRefusedInAnotherUsersFolder) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can give a folder away";
    const TemporaryDirectory foreign;
    fs::create_symlink(path, foreign.path("link"));
    ASSERT_EQ(chown(foreign.path().c_str(), stranger, 0), 0);

    EXPECT_THAT(errorOf(foreign.path("link")), HasSubstr("in a folder that others may write to"));
}

TEST_F(OwnershipTest, NewDatabaseInAFolderThatOthersMayWriteIsMade) {
    openFolder();

    EXPECT_EQ(errorOf(directory.path("new")), "");
}

TEST_F(OwnershipTest, LinkToNothingIsNotFollowedWhereOthersMayLayOne) {
    openFolder();
    fs::create_symlink(directory.path("target"), directory.path("link"));

    EXPECT_THAT(errorOf(directory.path("link")), HasSubstr("is a symbolic link"));
    EXPECT_FALSE(fs::exists(directory.path("target")));
}

} // namespace
