#include "fakes/temporarydirectory.h"
#include "store/server/listeningsocket.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

using store::ListeningSocket;
using testing::HasSubstr;

std::string errorOf(const std::string& path) {
    try {
        const ListeningSocket socket(path, std::nullopt);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "";
}

// A socket file that nobody listens on.
void leaveStaleSocket(const std::string& path) {
    const int descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    close(descriptor);
}

mode_t modeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0);
    return status.st_mode & 0777;
}

class ListeningSocketTest : public testing::Test {
protected:
    const TemporaryDirectory directory;
    const std::string path = directory.path("socket");
};

TEST_F(ListeningSocketTest, IsTheOwnersAlone) {
    const ListeningSocket socket(path, std::nullopt);

    EXPECT_EQ(modeOf(path), 0600U);
}

TEST_F(ListeningSocketTest, IsTheGroupsWhereOneIsGiven) {
    const ListeningSocket socket(path, getegid());

    EXPECT_EQ(modeOf(path), 0660U);
}

TEST_F(ListeningSocketTest, StaleSocketIsReplaced) {
    leaveStaleSocket(path);

    EXPECT_EQ(errorOf(path), "");
}

TEST_F(ListeningSocketTest, LivingServersSocketStays) {
    const ListeningSocket living(path, std::nullopt);

    EXPECT_EQ(errorOf(path), "socket " + path + ": another server holds it");
    EXPECT_TRUE(std::filesystem::exists(path));
}

TEST_F(ListeningSocketTest, FileAtThePathStays) {
    writeFile(path, "mine");

    EXPECT_THAT(errorOf(path), HasSubstr("there is something else at this path"));
    EXPECT_EQ(contentOf(path), "mine");
}

TEST_F(ListeningSocketTest, DirectoryAtThePathStays) {
    std::filesystem::create_directory(path);

    EXPECT_THAT(errorOf(path), HasSubstr("there is something else at this path"));
    EXPECT_TRUE(std::filesystem::is_directory(path));
}

TEST_F(ListeningSocketTest, LinkAtThePathStaysEvenToAStaleSocket) {
    leaveStaleSocket(directory.path("target"));
    std::filesystem::create_symlink(directory.path("target"), path);

    EXPECT_THAT(errorOf(path), HasSubstr("there is something else at this path"));
    EXPECT_TRUE(std::filesystem::is_symlink(path));
    EXPECT_TRUE(std::filesystem::exists(directory.path("target")));
}

TEST_F(ListeningSocketTest, MissingDirectoryIsAnError) {
    EXPECT_THAT(errorOf(directory.path("none/socket")), HasSubstr("No such file or directory"));
}

TEST_F(ListeningSocketTest, PathThatIsTooLongIsAnError) {
    EXPECT_THAT(errorOf("/tmp/" + std::string(200, 'x')), HasSubstr("must have 1 to 107 bytes"));
}

TEST_F(ListeningSocketTest, PathIsRemovedAtTheEnd) {
    { const ListeningSocket socket(path, std::nullopt); }

    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(ListeningSocketTest, PathThatBecameAnothersStaysAtTheEnd) {
    {
        const ListeningSocket socket(path, std::nullopt);
        std::filesystem::remove(path);
        writeFile(path, "another's");
    }

    EXPECT_EQ(contentOf(path), "another's");
}

} // namespace
