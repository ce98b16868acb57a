#include "probes/kernelfile.h"
#include "support/kernelfiles.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using orv::KernelFile;
using testing::ElementsAre;
using testing::ElementsAreArray;

class KernelFileTest : public testing::Test {
protected:
    KernelFile fileWith(const std::string& content) const {
        files_.sipCalls.write(content);
        return KernelFile(files_.sipCalls.path());
    }

    std::vector<std::string> linesOf(const std::string& content) const {
        KernelFile file = fileWith(content);
        std::vector<std::string> lines;
        for (std::string line; file.readLine(line);)
            lines.push_back(line);
        return lines;
    }

    KernelFiles files_;
};

struct Case {
    std::string content;
    std::vector<std::string> lines;
};

const Case cases[] = {
    {"", {}},
    {"\n", {""}},
    {"\n\n", {"", ""}},
    {"a", {"a"}},
    {"a\n", {"a"}},
    {"a\nb", {"a", "b"}},
    {"a\n\nb\n", {"a", "", "b"}},
    {" a \t\n", {" a \t"}},
    {"a\r\nb\r\n", {"a\r", "b\r"}},
    {"a\rb", {"a\rb"}},
    {"\x80\xFF\n\xC3\xA4", {"\x80\xFF", "\xC3\xA4"}},
    // a zero byte ends what is read of its line
    {std::string("a\0b\nc\n", 6), {"a", "c"}},
    {std::string("\0\n\0", 3), {"", ""}},
    {std::string("a\0", 2), {"a"}},
};

TEST_F(KernelFileTest, GivesItsLinesWithoutTheirEnds) {
    for (const Case& given : cases)
        EXPECT_THAT(linesOf(given.content), ElementsAreArray(given.lines)) << given.content;
}

TEST_F(KernelFileTest, ALineIsReadUpToItsLongest) {
    for (const std::size_t length : {254U, 255U, 256U, 257U, 511U, 10000U}) {
        const std::string line(length, 'x');
        const std::string read(std::min<std::size_t>(length, 255), 'x');
        EXPECT_THAT(linesOf(line + "\nnext\n"), ElementsAre(read, "next")) << length;
        EXPECT_THAT(linesOf("first\n" + line), ElementsAre("first", read)) << length;
    }
}

TEST_F(KernelFileTest, TheLongestCanBeLess) {
    for (const std::size_t length : {62U, 63U, 64U, 10000U}) {
        KernelFile file = fileWith(std::string(length, 'x') + "\nnext\n");
        std::string line;
        EXPECT_TRUE(file.readLine(line, 63));
        EXPECT_EQ(line, std::string(std::min<std::size_t>(length, 63), 'x'));
        EXPECT_TRUE(file.readLine(line, 63));
        EXPECT_EQ(line, "next");
        EXPECT_FALSE(file.readLine(line, 63));
    }
}

TEST_F(KernelFileTest, AZeroByteBehindTheLongestDoesNotMatter) {
    const std::string longest(255, 'x');
    EXPECT_THAT(linesOf(longest + std::string("y\0z\nnext", 8)), ElementsAre(longest, "next"));
}

TEST_F(KernelFileTest, IsOpenWhereThereIsSomethingToOpen) {
    EXPECT_TRUE(fileWith("a\n").isOpen());
    EXPECT_TRUE(fileWith("").isOpen());
    EXPECT_FALSE(KernelFile(files_.sipCalls.path() + "/below").isOpen());
    EXPECT_FALSE(KernelFile("").isOpen());
    EXPECT_FALSE(KernelFile(files_.ipCache.path()).isOpen()); // missing
}

TEST_F(KernelFileTest, AMissingFileHasNoLines) {
    KernelFile file(files_.ipCache.path());
    std::string line = "untouched";
    EXPECT_FALSE(file.readLine(line));
    EXPECT_FALSE(file.readLine(line));
    EXPECT_EQ(line, "");
}

TEST_F(KernelFileTest, ADirectoryHasNoLines) {
    files_.ipCache.makeDirectory();
    KernelFile file(files_.ipCache.path());
    std::string line;
    EXPECT_FALSE(file.readLine(line));
    EXPECT_FALSE(file.readLine(line));
    EXPECT_EQ(line, "");
}

TEST_F(KernelFileTest, BehindTheEndThereAreNoMoreLines) {
    KernelFile file = fileWith("a\n");
    std::string line;
    EXPECT_TRUE(file.readLine(line));
    EXPECT_FALSE(file.readLine(line));
    EXPECT_FALSE(file.readLine(line));
}

} // namespace
