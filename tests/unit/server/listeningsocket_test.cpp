#include "store/server/listeningsocket.h"
#include "store/users.h"
#include "support/loweredlimit.h"
#include "support/temporarydirectory.h"

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

sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

// A socket at a path, closed at the end; the path stays.
class BoundSocket {
public:
    BoundSocket(const std::string& path, int type) : descriptor_(socket(AF_UNIX, type, 0)) {
        const sockaddr_un address = addressOf(path);
        EXPECT_EQ(bind(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }
    ~BoundSocket() { close(descriptor_); }
    BoundSocket(const BoundSocket&) = delete;
    BoundSocket& operator=(const BoundSocket&) = delete;

    int get() const { return descriptor_; }

private:
    int descriptor_;
};

// A socket file that nobody listens on.
void leaveStaleSocket(const std::string& path) {
    const BoundSocket left(path, SOCK_STREAM);
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

TEST_F(ListeningSocketTest, StaleSocketStaysWhereThereIsNoDescriptorToTryItWith) {
    leaveStaleSocket(path);
    {
        const LoweredLimit none(RLIMIT_NOFILE, 0);
        EXPECT_EQ(errorOf(path), "socket " + path + ": can't be made: Too many open files");
    }
    EXPECT_TRUE(std::filesystem::exists(path));
}

TEST_F(ListeningSocketTest, LivingServersSocketStays) {
    const ListeningSocket living(path, std::nullopt);

    EXPECT_EQ(errorOf(path), "socket " + path + ": another server holds it (process " +
                                 std::to_string(getpid()) + ", " + store::userText(geteuid()) + ")");
    EXPECT_TRUE(std::filesystem::exists(path));
}

TEST_F(ListeningSocketTest, ServerWhoseQueueIsFullIsNamedByItsOwner) {
    const BoundSocket other(path, SOCK_STREAM);
    ASSERT_EQ(listen(other.get(), 0), 0);
    const sockaddr_un address = addressOf(path);
    const int waiting = socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(connect(waiting, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);

    EXPECT_EQ(errorOf(path),
              "socket " + path + ": another server holds it (" + store::userText(geteuid()) + ")");
    close(waiting);
}

TEST_F(ListeningSocketTest, SocketThatCannotBeTriedIsNamedByItsOwner) {
    const BoundSocket datagrams(path, SOCK_DGRAM);

    EXPECT_EQ(errorOf(path), "socket " + path + ": there is a socket of " + store::userText(geteuid()) +
                                 " at this path that can't be tried: Protocol wrong type for socket");
}

TEST_F(ListeningSocketTest, FileAtThePathStays) {
    writeFile(path, "mine");

    EXPECT_EQ(errorOf(path), "socket " + path + ": there is something else at this path, of " +
                                 store::userText(geteuid()) + ", it stays as it is");
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
