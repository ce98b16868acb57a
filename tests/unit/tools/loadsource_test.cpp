#include "rows.h"
#include "tools/errors.h"
#include "tools/loadsource.h"

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tools {
namespace {

using testing::errorOf;

std::string all(LoadSource& source) {
    std::string text;
    std::array<char, 4096> bytes;
    while (const std::size_t size = source.read(bytes.data(), bytes.size()))
        text.append(bytes.data(), size);
    return text;
}

class LoadSources : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_NE(mkdtemp(directory.data()), nullptr); }
    void TearDown() override { std::filesystem::remove_all(directory); }

    // A shell writes it, as far as it is read.
    void pipe(const std::string& path, const std::string& command) {
        ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
        ASSERT_EQ(std::system((command + " 2>/dev/null > " + path + " &").c_str()), 0);
    }

    std::string directory = "/tmp/loadsource.XXXXXX";
};

TEST_F(LoadSources, AFileIsReadAgainFromTheBeginning) {
    const std::string path = directory + "/file";
    std::ofstream(path) << std::string(10000, 'x');
    LoadSource source(path);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(all(source), std::string(10000, 'x'));
        source.rewind();
    }
}

TEST_F(LoadSources, APipeIsReadAgainToo) {
    const std::string path = directory + "/pipe";
    pipe(path, "seq 100000");
    LoadSource source(path);
    const std::string first = all(source);
    EXPECT_EQ(first.size(), 588895U);
    for (int i = 0; i < 2; ++i) {
        source.rewind();
        EXPECT_EQ(all(source), first);
    }
}

TEST_F(LoadSources, WhatIsKeptOfAPipeHasNoName) {
    const std::string path = directory + "/pipe";
    pipe(path, "seq 1000");
    setenv("TMPDIR", directory.c_str(), 1);
    LoadSource source(path);
    (void)all(source);
    unsetenv("TMPDIR");
    const std::filesystem::directory_iterator files(directory);
    EXPECT_EQ(std::distance(begin(files), end(files)), 1);
}

TEST_F(LoadSources, APipeHasALimit) {
    const std::string path = directory + "/pipe";
    pipe(path, "yes");
    LoadSource source(path, 1000000);
    EXPECT_EQ(errorOf([&] { return all(source); }), "larger than 1000000 bytes");
}

TEST_F(LoadSources, AFolderForTemporaryFilesThatIsMissingIsNoObstacle) {
    const std::string path = directory + "/pipe";
    pipe(path, "seq 1000");
    setenv("TMPDIR", (directory + "/missing").c_str(), 1);
    LoadSource source(path);
    const std::string first = all(source);
    unsetenv("TMPDIR");
    source.rewind();
    EXPECT_EQ(all(source), first);
    EXPECT_EQ(first.size(), 3893U);
}

TEST(LoadSource, ThatIsMissingIsRefused) {
    EXPECT_EQ(errorOf([] { return LoadSource("/nowhere/file").read(nullptr, 0); }),
              "No such file or directory");
}

TEST(LoadSource, ThatIsADirectoryIsRefused) {
    LoadSource source("/");
    EXPECT_EQ(errorOf([&] { return all(source); }), "Is a directory");
}

} // namespace
} // namespace tools
