// Readings of a table that is too large for one turn, and what others do meanwhile.
#include "unit/server/serverfixture.h"

#include <gmock/gmock.h>

namespace {

using ask::RequestKind;
using std::chrono::milliseconds;
using testing::Each;
using testing::HasSubstr;
using testing::SizeIs;
using velta::protocol::ReplyKind;
namespace code = velta::protocol::code;

class ReadingsTest : public ServerTest {
protected:
    explicit ReadingsTest(const store::ServerOptions& options = {}) : ServerTest(options) {
        addLargeRows(*writer);
    }

    // In one commit.
    void changeAllRows(const std::string& name) {
        std::vector<ask::Request> requests = {ask::begin(5000)};
        for (std::size_t id = 1; id <= largeRows; ++id) {
            ask::Request update = ask::ofTable(RequestKind::Update, "Plans");
            update.keyColumn = "Id";
            update.key = std::to_string(id);
            update.values = cell("Name", textValue(name));
            requests.push_back(update);
        }
        requests.push_back(ask::insert("Plans", cell("Name", textValue(name))));
        requests.push_back(ask::plain(RequestKind::Commit));
        for (const ask::Request& request : requests)
            ASSERT_TRUE(succeeds(*writer, request));
    }
    static std::set<std::string> names(const Answer& answer) {
        std::set<std::string> found;
        for (const velta::ValueList& row : answer.rows)
            found.insert(row.getValue("Name").getText());
        return found;
    }
    bool hasAnswer(RawClient& client) {
        client.receive();
        return !client.answers.empty();
    }

    const store::Readings::Limits limits;
    const std::string old = std::string(4096, 'x');
    const Client writer = greeted();
};

TEST_F(ReadingsTest, AreOfOneMomentWhateverIsCommittedMeanwhile) {
    const Client reader = greeted();
    askWithoutReading(*reader);
    changeAllRows("new");
    changeAllRows("newer"); // but for the row that came with the first

    const Answer answer = whole(*reader);

    EXPECT_EQ(answer.rows.size(), largeRows);
    EXPECT_THAT(names(answer), testing::ElementsAre(old));
    EXPECT_THAT(names(call(*reader, ask::readTable("Plans"))), testing::ElementsAre("new", "newer"));
}

TEST_F(ReadingsTest, BeginWithTheMomentInWhichTheyGetASnapshot) {
    const Client holders[] = {greeted(), greeted(), greeted(), greeted()};
    for (const Client& holder : holders)
        askWithoutReading(*holder);
    const Client reader = greeted();
    reader->send(ask::readTable("Plans"));
    serveAll();
    changeAllRows("new");

    holders[2]->disconnect();

    EXPECT_THAT(names(whole(*reader)), testing::ElementsAre("new"));
}

TEST_F(ReadingsTest, AreFourAtATimeAndTheFifthHasItsTurnWhenOneIsDone) {
    const Client holders[] = {greeted(), greeted(), greeted(), greeted()};
    for (const Client& holder : holders)
        askWithoutReading(*holder);
    const Client fifth = greeted();
    fifth->sendAll({ask::readTable("Plans"), ask::readTable("Globals")});
    serveAll();
    EXPECT_FALSE(hasAnswer(*fifth));
    EXPECT_EQ(enabled(*writer, "Globals"), 1); // a small one needs none

    EXPECT_EQ(whole(*holders[1]).rows.size(), largeRows);

    EXPECT_EQ(whole(*fifth).rows.size(), largeRows);
    EXPECT_EQ(next(*fifth).rows.size(), 1U);
}

TEST_F(ReadingsTest, WhoHadASnapshotLeastRecentlyIsNext) {
    const Client first = greeted();
    const Client second = greeted();
    const Client third = greeted();
    for (const Client* client : {&second, &first}) {
        (*client)->send(ask::readTable("Plans"));
        ASSERT_EQ(whole(**client).rows.size(), largeRows);
    }
    const Client holders[] = {greeted(), greeted(), greeted(), greeted()};
    for (const Client& holder : holders)
        askWithoutReading(*holder);
    for (const Client* client : {&first, &second, &third}) {
        (*client)->send(ask::readTable("Plans"));
        serveAll();
    }

    // Nobody takes anything, so whoever got the one that is free keeps it.
    for (const auto& [gone, next, waiting] :
         {std::tuple(0, &third, &second), std::tuple(1, &second, &first), std::tuple(2, &first, &first)}) {
        holders[gone]->disconnect();
        serveAll();
        EXPECT_TRUE(await([this, who = next] { return hasAnswer(**who); })) << gone;
        EXPECT_TRUE(waiting == next || !hasAnswer(**waiting)) << gone;
    }
}

TEST_F(ReadingsTest, BeginInTheNextRoundWithoutAFurtherEvent) {
    writer->send(ask::readTable("Plans"));
    server.handleEvents(1000); // asked for

    const auto begin = std::chrono::steady_clock::now();
    server.handleEvents(5000);

    EXPECT_LT(std::chrono::steady_clock::now() - begin, milliseconds(2500));
    EXPECT_TRUE(hasAnswer(*writer));
}

TEST_F(ReadingsTest, GiveWayToANoticeBetweenTwoPieces) {
    const Client reader = subscribed({"Globals"});
    askWithoutReading(*reader);
    commitEnable(*writer, "Globals", 0);

    const Answer answer = whole(*reader);

    ASSERT_THAT(reader->notices, SizeIs(1));
    EXPECT_EQ(answer.rows.size(), largeRows);
    EXPECT_EQ(reader->order.back(), std::to_string(answer.reply.sequence)) << "the notice comes last";
}

TEST_F(ReadingsTest, OfTheOpenTransactionSeeItsWrites) {
    ASSERT_TRUE(succeeds(*writer, ask::begin(0)));
    ASSERT_TRUE(succeeds(*writer, ask::insert("Plans", cell("Name", textValue("own")))));
    const std::uint32_t commit = writer->sendAll({ask::readTable("Plans"), ask::plain(RequestKind::Commit)});

    const Answer answer = whole(*writer);

    EXPECT_EQ(answer.rows.size(), largeRows + 1);
    EXPECT_EQ(answer.rows.back().getValue("Name").getText(), "own");
    EXPECT_EQ(next(*writer).reply.sequence, commit);
}

TEST_F(ReadingsTest, OfTheOpenTransactionNeedNoSnapshot) {
    const Client holders[] = {greeted(), greeted(), greeted(), greeted()};
    for (const Client& holder : holders)
        askWithoutReading(*holder);
    ASSERT_TRUE(succeeds(*writer, ask::begin(0)));

    const auto begin = std::chrono::steady_clock::now();
    writer->send(ask::readTable("Plans"));

    EXPECT_EQ(whole(*writer).rows.size(), largeRows);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, limits.snapshot / 2) << "it waited for another's";
}

TEST_F(ReadingsTest, OfAnUnknownTableFail) {
    EXPECT_EQ(codeOf(*writer, ask::readTable("Nothing")), code::unknownTable);
    ASSERT_TRUE(succeeds(*writer, ask::begin(0)));
    EXPECT_EQ(codeOf(*writer, ask::readTable("Nothing")), code::unknownTable);
}

class BriefTransactionTest : public ReadingsTest {
protected:
    BriefTransactionTest() : ReadingsTest(options()) {}

    static store::ServerOptions options() {
        store::ServerOptions brief;
        brief.transaction.held = milliseconds(3000); // for the fixture's large rows
        brief.transaction.silent = milliseconds(100);
        return brief;
    }
};

TEST_F(BriefTransactionTest, ReadingOfATransactionThatExpiresEndsInThatFailure) {
    const Client reader = greeted();
    ASSERT_TRUE(succeeds(*reader, ask::begin(0)));
    ASSERT_TRUE(succeeds(*reader, ask::insert("Plans", cell("Name", textValue("own")))));
    const std::uint32_t sequence = reader->send(ask::readTable("Plans"));
    EXPECT_TRUE(succeeds(*writer, ask::begin(5000))); // silent until then

    const Answer answer = whole(*reader);

    EXPECT_EQ(answer.reply.kind, ReplyKind::Failed);
    EXPECT_EQ(answer.reply.sequence, sequence);
    EXPECT_EQ(answer.reply.result.code(), code::transactionExpired);
    EXPECT_THAT(answer.rows, testing::Not(testing::IsEmpty())) << "it was not begun";
    EXPECT_EQ(codeOf(*reader, ask::plain(RequestKind::Commit)), code::noTransaction) << "it is told twice";
    EXPECT_EQ(enabled(*reader, "Globals"), 1);
}

// The time for a snapshot is short, so that whoever reads slowly loses it.
class BriefSnapshotTest : public ReadingsTest {
protected:
    static constexpr milliseconds snapshot{200};
    explicit BriefSnapshotTest(std::size_t kept = 16U * 1024 * 1024) : ReadingsTest(options(kept)) {}

    static store::ServerOptions options(std::size_t kept) {
        store::ServerOptions brief;
        brief.readings.snapshot = snapshot;
        brief.readings.kept = kept;
        return brief;
    }
};

TEST_F(BriefSnapshotTest, SlowReaderGivesItsSnapshotBackAndStillGetsAll) {
    const Client slow[] = {greeted(), greeted(), greeted(), greeted()};
    for (const Client& client : slow)
        client->send(ask::readTable("Plans"));
    const Client fifth = greeted();
    fifth->send(ask::readTable("Plans"));

    EXPECT_EQ(whole(*fifth).rows.size(), largeRows);
    changeAllRows("new");

    for (const Client& client : slow) {
        const Answer answer = whole(*client);
        EXPECT_EQ(answer.rows.size(), largeRows);
        EXPECT_THAT(names(answer), testing::ElementsAre(old));
    }
}

TEST_F(BriefSnapshotTest, ServerWakesByItselfToTakeItBack) {
    const Client slow[] = {greeted(), greeted(), greeted(), greeted()};
    for (const Client& client : slow)
        client->send(ask::readTable("Plans"));
    const Client fifth = greeted();
    fifth->send(ask::readTable("Plans"));
    const auto begin = std::chrono::steady_clock::now();

    while (!hasAnswer(*fifth) && std::chrono::steady_clock::now() - begin < milliseconds(5000))
        server.handleEvents(10000); // waits for the client too

    EXPECT_LT(std::chrono::steady_clock::now() - begin, milliseconds(5000));
}

class LittleRoomTest : public BriefSnapshotTest {
protected:
    static constexpr std::size_t tableBytes = largeRows * 4096;
    LittleRoomTest() : BriefSnapshotTest(tableBytes * 3 / 2) {} // for one rest of a table, not for two
};

TEST_F(LittleRoomTest, WhoseRestHasNoRoomIsClosedAndNamed) {
    const Client first = greeted();
    const Client second = greeted();

    testing::internal::CaptureStderr();
    askWithoutReading(*first);
    askWithoutReading(*second);
    const bool closed = await([&second] { return second->isHungUp(); });
    const std::string log = testing::internal::GetCapturedStderr();

    EXPECT_TRUE(closed);
    EXPECT_THAT(log, HasSubstr("client \"test\""));
    EXPECT_THAT(log,
                HasSubstr("is too slow to take its answer, and the rest is too large to be kept for it"));
    EXPECT_EQ(whole(*first).rows.size(), largeRows);
}

TEST_F(LittleRoomTest, WhoIsClosedTakesNoRoomFromThoseWhoseTimeIsUpWithIt) {
    const Client full = greeted();
    askWithoutReading(*full); // takes most of the room
    serveFor(2 * snapshot);
    const Client large = greeted();
    const Client small = greeted();
    large->send(ask::readTable("Plans"));
    small->send(ask::readTable("Plans"));
    ASSERT_TRUE(await([&small] {
        small->receive(65536);
        return small->answers.size() >= 30; // of 38 pieces
    }));
    serveFor(2 * snapshot);

    EXPECT_TRUE(large->isHungUp());
    EXPECT_EQ(whole(*small).rows.size(), largeRows);
}

TEST_F(LittleRoomTest, RoomIsFreeAgainWhenARestIsRead) {
    for (int i = 0; i < 3; ++i) {
        const Client slow = greeted();
        askWithoutReading(*slow);
        serveFor(2 * snapshot);
        ASSERT_EQ(whole(*slow).rows.size(), largeRows) << i;
    }
}

TEST_F(LittleRoomTest, RoomIsFreeAgainWhenItsClientIsGone) {
    for (int i = 0; i < 3; ++i) {
        const Client slow = greeted();
        askWithoutReading(*slow);
        serveFor(2 * snapshot);
        ASSERT_FALSE(slow->isHungUp()) << i;
    }
}

} // namespace
