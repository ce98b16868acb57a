// The transaction, what is written in it, and what happens where the store fails.

#include "unit/handlers/rebootfixture.h"

#include <deque>
#include <utility>

#include <gmock/gmock.h>

namespace {

using orv::horad::RebootHandler;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;
namespace code = velta::protocol::code;

using Lines = std::vector<std::string>;

constexpr const char* noTransaction = "error horad: Failed to start transaction for auto reboot.";
constexpr const char* noCommit = "error horad: Failed to commit auto reboot transaction.";

class RebootTrigger : public RebootFixture {
protected:
    RebootTrigger() {
        (void)read(handler_);
        forget();
    }

    // What a pass asks of the store, as long as its transaction could be started.
    static Lines written(std::time_t now) {
        return {"is open", "start", "is open", triggerWritten, momentWritten(textOf(now)), "close"};
    }

    // What a pass logs that is due and has no transaction.
    static Lines failed(std::time_t now) {
        Lines lines = decided(now, {idle, allowed});
        lines.emplace_back(noTransaction);
        return lines;
    }

    static Lines uncommitted(std::time_t now) {
        Lines lines = triggered(now);
        lines.emplace_back(noCommit);
        return lines;
    }
};

TEST_F(RebootTrigger, WritesTheCommandAndTheMomentInOneTransaction) {
    EXPECT_EQ(pass(handler_), triggered(insideSlot));

    EXPECT_EQ(store_.journal(), written(insideSlot));
    EXPECT_EQ(store_.number("Reboot", 0, "Trigger"), 1);
    EXPECT_EQ(store_.table("AutoReboot")[0].getValue("LastReboot").getText(), "2024-01-01T03:30:10+0000");
    EXPECT_THAT(sleep_.sleeps, IsEmpty());
}

struct ZoneCase {
    const char* zone;
    std::time_t offset; // seconds east of UTC
    const char* text;
};

const ZoneCase zoneCases[] = {
    {"CET-1CEST,M3.5.0,M10.5.0/3", 3600, "2024-01-01T03:30:10+0100"},
    {"CST6", -6 * 3600, "2024-01-01T03:30:10-0600"},
    {"IST-5:30", 5 * 3600 + 1800, "2024-01-01T03:30:10+0530"},
};

TEST_F(RebootTrigger, TheMomentIsInLocalTime) {
    for (const ZoneCase& given : zoneCases) {
        SCOPED_TRACE(given.zone);
        zone_.set(given.zone);
        RebootHandler handler;
        ASSERT_TRUE(read(handler, RebootSettings()));
        EXPECT_EQ(passAt(handler, insideSlot - given.offset).back(),
                  std::string("info horad: Trigger auto reboot now at '") + given.text + "'");
        EXPECT_THAT(store_.writes(),
                    ElementsAre("start", triggerWritten, momentWritten(given.text), "close"));
    }
}

TEST_F(RebootTrigger, AnOpenTransactionIsUsed) {
    ASSERT_TRUE(store_.startTransaction().ok());
    EXPECT_EQ(pass(handler_), triggered(insideSlot));
    EXPECT_THAT(store_.journal(), ElementsAre("is open", "is open", triggerWritten,
                                              momentWritten(textOf(insideSlot)), "close"));
}

TEST_F(RebootTrigger, ATransactionThatCantBeStartedIsTriedAgainEveryHalfSecond) {
    for (const std::size_t failures : {0U, 1U, 2U, 119U, 120U}) {
        SCOPED_TRACE(failures);
        RebootHandler handler;
        ASSERT_TRUE(read(handler, RebootSettings()));
        sleep_.sleeps.clear();
        sleep_.onSleep = [&] {
            if (sleep_.sleeps.size() == failures)
                store_.recover();
        };
        if (failures > 0)
            store_.fail(Operation::Start, code::busy);

        EXPECT_EQ(pass(handler), triggered(insideSlot));

        Lines expected = written(insideSlot);
        expected.insert(expected.begin() + 1, failures, "start -> 9");
        EXPECT_EQ(store_.journal(), expected);
        EXPECT_THAT(sleep_.sleeps, SizeIs(failures));
        EXPECT_THAT(sleep_.sleeps, Each(500000u));
    }
}

TEST_F(RebootTrigger, AfterAHundredAndTwentyOneAttemptsThereIsNoReboot) {
    store_.fail(Operation::Start, code::busy);

    EXPECT_EQ(pass(handler_), failed(insideSlot));

    Lines expected(121, "start -> 9");
    expected.insert(expected.begin(), "is open");
    expected.emplace_back("is open");
    EXPECT_EQ(store_.journal(), expected);
    EXPECT_THAT(sleep_.sleeps, SizeIs(120));
    EXPECT_THAT(sleep_.sleeps, Each(500000u));
    EXPECT_EQ(store_.number("Reboot", 0, "Trigger"), 0);
}

TEST_F(RebootTrigger, WithoutATransactionItIsTriedAgainInsideTheSlotOnly) {
    store_.fail(Operation::Start, code::busy);
    ASSERT_EQ(passAt(handler_, slotBegin), failed(slotBegin));
    store_.recover();

    EXPECT_EQ(passAt(handler_, slotEnd + 1), refused(slotEnd + 1)); // idle: nothing is scheduled
    EXPECT_EQ(passAt(handler_, slotEnd), triggered(slotEnd));       // and no last reboot refuses it
}

TEST_F(RebootTrigger, WithoutATransactionTheNextSlotTriggers) {
    store_.fail(Operation::Start, code::notConnected);
    ASSERT_EQ(pass(handler_), failed(insideSlot));
    store_.recover();
    EXPECT_EQ(passAt(handler_, nextSlot), triggered(nextSlot));
}

TEST_F(RebootTrigger, WhileItWaitsForItsTransactionTheMomentStaysThatOfThePass) {
    std::time_t now = insideSlot;
    sleep_.onSleep = [&] {
        clock_.set(++now);
        if (now == insideSlot + 60)
            store_.recover();
    };
    store_.fail(Operation::Start, code::busy);

    EXPECT_EQ(pass(handler_), triggered(insideSlot));

    EXPECT_THAT(store_.writes().back(), "close");
    EXPECT_EQ(store_.table("AutoReboot")[0].getValue("LastReboot").getText(), textOf(insideSlot));
}

// Says what it is told when it is asked for an open transaction, and counts.
class AnsweringStore : public fakes::FakeStore {
public:
    explicit AnsweringStore(std::deque<bool> answers) : answers_(std::move(answers)) {}

    bool isTransactionOpen() override {
        (void)FakeStore::isTransactionOpen();
        if (answers_.empty())
            return false;
        const bool answer = answers_.front();
        answers_.pop_front();
        return answer;
    }
    std::size_t unasked() const { return answers_.size(); }

private:
    std::deque<bool> answers_;
};

struct AnswerCase {
    std::deque<bool> answers; // in turn
    bool starts;              // whether a transaction can be started
    bool triggers;
};

const AnswerCase answerCases[] = {
    {{true, true}, false, true},   {{true, false}, true, false}, {{false, true}, true, true},
    {{false, false}, true, false}, {{false, true}, false, true}, {{false, false}, false, false},
};

TEST_F(RebootTrigger, TheStoresLastWordSaysWhetherATransactionIsOpen) {
    for (const AnswerCase& given : answerCases) {
        SCOPED_TRACE(testing::Message() << given.answers[0] << given.answers[1] << given.starts);
        AnsweringStore store(given.answers);
        store.table("AutoReboot") = {RebootSettings().row()};
        store.table("Reboot") = {fakes::row({{"Trigger", 0}})};
        RebootHandler handler;
        ASSERT_TRUE(handler.configChanged(store, ""));
        if (!given.starts)
            store.fail(Operation::Start, code::busy);
        log_.clear();

        handler.checkReboot(store);

        EXPECT_EQ(store.unasked(), 0u);
        if (given.triggers) {
            EXPECT_THAT(store.journal(), Contains(StartsWith(triggerWritten)));
            EXPECT_THAT(log_.lines(), Not(Contains(noTransaction)));
        } else {
            EXPECT_THAT(store.writes(), Each(StartsWith("start")));
            EXPECT_EQ(log_.lines(), failed(insideSlot));
        }
    }
}

struct WriteCase {
    unsigned nth;
    const char* trigger;
    const char* moment;
};

const WriteCase writeCases[] = {
    {1, " -> 20", ""},
    {2, "", " -> 20"},
    {0, " -> 20", " -> 20"},
};

TEST_F(RebootTrigger, AWriteThatFailsIsIgnored) {
    for (const WriteCase& given : writeCases) {
        SCOPED_TRACE(given.nth);
        RebootHandler handler;
        ASSERT_TRUE(read(handler, RebootSettings()));
        if (given.nth == 0)
            store_.fail(Operation::WriteSingleRow, code::storageFailed);
        else
            store_.failNth(Operation::WriteSingleRow, given.nth, code::storageFailed);

        EXPECT_EQ(passAt(handler, slotBegin), triggered(slotBegin));

        EXPECT_THAT(store_.writes(), ElementsAre("start", triggerWritten + std::string(given.trigger),
                                                 momentWritten(textOf(slotBegin)) + given.moment, "close"));
        store_.recover();
        EXPECT_EQ(passAt(handler, slotEnd), refused(slotEnd, {idle, lastRebootOnly(59)}));
    }
}

TEST_F(RebootTrigger, ACommandTableThatIsNotThereDoesNotKeepTheMomentBack) {
    fakes::FakeStore store;
    store.table("AutoReboot") = {RebootSettings().row()};
    ASSERT_TRUE(handler_.configChanged(store, ""));
    store.clearJournal();
    handler_.checkReboot(store);
    EXPECT_THAT(store.writes(), ElementsAre("start", triggerWritten + std::string(" -> 13"),
                                            momentWritten(textOf(insideSlot)), "close"));
}

TEST_F(RebootTrigger, ACommitThatFailsIsLoggedAndAborted) {
    for (const int failure : {code::storageFull, code::outdated, code::notConnected}) {
        SCOPED_TRACE(failure);
        RebootHandler handler;
        ASSERT_TRUE(read(handler, RebootSettings()));
        store_.failNth(Operation::Close, 1, failure);

        EXPECT_EQ(pass(handler), uncommitted(insideSlot));

        EXPECT_THAT(store_.writes(), ElementsAre("start", triggerWritten, momentWritten(textOf(insideSlot)),
                                                 "close -> " + std::to_string(failure), "abort -> 10"));
        EXPECT_EQ(store_.number("Reboot", 0, "Trigger"), 0);
    }
}

TEST_F(RebootTrigger, AfterACommitThatFailedTheMomentCountsAllTheSame) {
    store_.failNth(Operation::Close, 1, code::storageFull);
    ASSERT_EQ(passAt(handler_, slotBegin), uncommitted(slotBegin));

    EXPECT_EQ(passAt(handler_, slotEnd), refused(slotEnd, {idle, lastRebootOnly(59)}));
    EXPECT_EQ(passAt(handler_, outsideSlot), refused(outsideSlot));
    EXPECT_EQ(passAt(handler_, nextSlot), triggered(nextSlot));
}

TEST_F(RebootTrigger, AReadingTakesTheLastRebootFromTheStoreAgain) {
    ASSERT_EQ(passAt(handler_, slotBegin), triggered(slotBegin));
    ASSERT_TRUE(read(handler_)); // as its own commit has it do
    EXPECT_EQ(passAt(handler_, slotEnd), refused(slotEnd, {idle, lastRebootOnly(59)}));
    ASSERT_TRUE(read(handler_, RebootSettings().lastReboot("")));
    EXPECT_EQ(passAt(handler_, slotEnd), triggered(slotEnd));
}

} // namespace
