#include "store/storage/database.h"
#include "store/storage/logcheck.h"
#include "support/temporarydirectory.h"
#include "unit/storage/testtables.h"

#include <gmock/gmock.h>

namespace {

constexpr std::size_t headerBytes = 32;
constexpr std::size_t frameBytes = 24 + 2048;

// The logs that a killed server left: of commits of one frame each, and of commits of several.
class LogCheckTest : public testing::Test {
protected:
    LogCheckTest() {
        {
            store::Database database(schemaOf(testTables), directory.path("db"));
            for (int i = 0; i < 10; ++i)
                commitText(database, std::string(static_cast<std::size_t>(large ? 3000 : 1),
                                                 static_cast<char>('a' + i)));
            log = contentOf(directory.path("db-wal"));
        }
        writeFile(path, log);
    }

    static void commitText(store::Database& database, const std::string& text) {
        EXPECT_TRUE(database.transaction().writeSingle("Globals", 0, cell("Text", textValue(text))).ok());
        EXPECT_EQ(commit(database), velta::NameList{"Globals"});
    }

    std::size_t frames() const { return (log.size() - headerBytes) / frameBytes; }
    // Flips a bit of a frame, counted from 0.
    void damageFrame(std::size_t frame, std::size_t byte) {
        log[headerBytes + frame * frameBytes + byte] ^= 4;
        writeFile(path, log);
    }

    bool large = false;
    const TemporaryDirectory directory;
    const std::string path = directory.path("copy-wal");
    std::string log;
};

TEST_F(LogCheckTest, SoundLogHasLostNothing) {
    ASSERT_EQ(frames(), 10U);

    EXPECT_FALSE(store::lossIn(path).has_value());
}

TEST_F(LogCheckTest, MissingEmptyOrForeignFileHasLostNothing) {
    EXPECT_FALSE(store::lossIn(directory.path("none")).has_value());
    for (const std::string& content :
         {std::string(), std::string("no log"), std::string(100000, '\0'), std::string(100000, 'x')}) {
        writeFile(path, content);
        EXPECT_FALSE(store::lossIn(path).has_value()) << content.size();
    }
}

TEST_F(LogCheckTest, LogThatHasOnlyADamagedHeaderHasLostNothing) {
    log.resize(headerBytes);
    log[20] ^= 4;
    writeFile(path, log);

    EXPECT_FALSE(store::lossIn(path).has_value());
}

class DamagedByteTest : public LogCheckTest, public testing::WithParamInterface<std::size_t> {};

TEST_P(DamagedByteTest, InTheMiddleLosesTheCommitsBehindIt) {
    damageFrame(4, GetParam());

    const auto loss = store::lossIn(path);

    ASSERT_TRUE(loss.has_value());
    EXPECT_EQ(loss->kept, 4U);
    EXPECT_GE(loss->lost, 4U);
    EXPECT_LE(loss->lost, 5U);
    EXPECT_EQ(loss->position, static_cast<std::int64_t>(headerBytes + 4 * frameBytes));
}

TEST_P(DamagedByteTest, InTheLastCommitIsWhatAPowerCutLeaves) {
    damageFrame(9, GetParam());

    EXPECT_FALSE(store::lossIn(path).has_value());
}

// The page's number, the size behind the commit, both salts, both checksums, the page.
INSTANTIATE_TEST_SUITE_P(LogCheck, DamagedByteTest, testing::Values(3, 7, 9, 13, 17, 21, 30, 1000, 2071));

class DamagedHeaderTest : public LogCheckTest, public testing::WithParamInterface<std::size_t> {};

TEST_P(DamagedHeaderTest, LosesAllCommits) {
    log[GetParam()] ^= 4;
    writeFile(path, log);

    const auto loss = store::lossIn(path);

    ASSERT_TRUE(loss.has_value());
    EXPECT_EQ(loss->kept, 0U);
    EXPECT_GE(loss->lost, 9U);
}

// The magic number, the version, the page size, the sequence, both salts, both checksums.
INSTANTIATE_TEST_SUITE_P(LogCheck, DamagedHeaderTest, testing::Values(1, 5, 10, 15, 17, 21, 25, 29));

TEST_F(LogCheckTest, CutLogHasLostNothingThatCanBeTold) {
    for (const std::size_t size :
         {std::size_t{10}, headerBytes, headerBytes + 100, headerBytes + 5 * frameBytes + 7}) {
        writeFile(path, log.substr(0, size));
        EXPECT_FALSE(store::lossIn(path).has_value()) << size;
    }
}

TEST_F(LogCheckTest, SeveralLostFramesInARowLoseWhatIsBehindThem) {
    log.replace(headerBytes + 2 * frameBytes, 3 * frameBytes, 3 * frameBytes, '\0');
    writeFile(path, log);

    const auto loss = store::lossIn(path);

    ASSERT_TRUE(loss.has_value());
    EXPECT_EQ(loss->kept, 2U);
    EXPECT_GE(loss->lost, 3U);
}

TEST_F(LogCheckTest, LogOfTheOtherByteOrderIsReadToo) {
    // Checksums of big-endian words, as a machine with that order writes them.
    store::Connection connection(directory.path("other"), SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    connection.execute("PRAGMA page_size = 2048; PRAGMA journal_mode = WAL; CREATE TABLE T (a)");
    const std::string written = contentOf(directory.path("other-wal"));
    ASSERT_GT(written.size(), headerBytes);
    EXPECT_FALSE(store::lossIn(directory.path("other-wal")).has_value());
    EXPECT_EQ(static_cast<unsigned char>(written[3]) & 0xfeU, 0x82U);
}

// Frames of several pages, the last torn in each place that a power cut can leave.
TEST(TornLog, IsNoLoss) {
    const TemporaryDirectory directory;
    store::Database database(schemaOf(testTables), directory.path("db"));
    std::uint32_t id = 0;
    ASSERT_TRUE(database.transaction().insert("Plans", {}, id).ok());
    ASSERT_EQ(commit(database), velta::NameList{"Plans"});
    const std::size_t before = contentOf(directory.path("db-wal")).size();
    for (int i = 0; i < 10; ++i)
        ASSERT_TRUE(
            database.transaction().insert("Plans", cell("Name", textValue(std::string(4000, 'x'))), id).ok());
    ASSERT_EQ(commit(database), velta::NameList{"Plans"});
    const std::string log = contentOf(directory.path("db-wal"));
    ASSERT_GT(log.size(), before + 10 * frameBytes);

    for (std::size_t at = before; at < log.size(); at += 512) { // the disk wrote all but one sector
        std::string torn = log;
        const std::size_t size = std::min<std::size_t>(512, log.size() - at);
        torn.replace(at, size, size, '\0');
        writeFile(directory.path("torn"), torn);
        EXPECT_FALSE(store::lossIn(directory.path("torn")).has_value()) << at;
    }
}

TEST(LostLog, IsAnErrorLineAtTheStartAndAllElseGoesOn) {
    const TemporaryDirectory directory;
    const std::string copy = directory.path("copy");
    {
        store::Database database(schemaOf(testTables), directory.path("db"));
        for (int i = 0; i < 6; ++i) {
            ASSERT_TRUE(database.transaction()
                            .writeSingle("Globals", 0, cell("Text", textValue(std::to_string(i))))
                            .ok());
            ASSERT_EQ(commit(database), velta::NameList{"Globals"});
        }
        std::string log = contentOf(directory.path("db-wal"));
        log[headerBytes + 3 * frameBytes + 100] ^= 1;
        writeFile(copy + "-wal", log);
        writeFile(copy, contentOf(directory.path("db")));
    }
    std::filesystem::permissions(copy, std::filesystem::perms(0600));
    std::filesystem::permissions(copy + "-wal", std::filesystem::perms(0600));

    testing::internal::CaptureStderr();
    store::Database database(schemaOf(testTables), copy);
    const std::string lines = testing::internal::GetCapturedStderr();

    EXPECT_THAT(lines, testing::HasSubstr("database " + copy +
                                          ": the log is damaged at byte 6248: 2 commits or more"));
    EXPECT_EQ(smallTableOf(database, "Globals").at(0).getValue("Text"), textValue("2"));
    EXPECT_EQ(contentOf(copy + "-wal").size(), 0U);
}

} // namespace
