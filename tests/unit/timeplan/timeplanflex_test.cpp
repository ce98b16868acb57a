#include "support/scriptedclock.h"
#include "timeplan/timeplanflex.h"

#include <ctime>
#include <iterator>
#include <limits>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

namespace {

using orv::horad::LocalMoment;
using orv::horad::TimePlanEntry;
using orv::horad::TimePlanFlex;
using orv::horad::TimePlanTime;

enum Day { EveryDay = 0, Mon, Tue, Wed, Sun = 7 };

constexpr long secondsADay = 86400;
constexpr long monday = 1704067200; // 2024-01-01 00:00:00 UTC

// In the first week of 2024.
long at(int day, int hour, int minute = 0, int second = 0) {
    return monday + (day - Mon) * secondsADay + hour * 3600L + minute * 60L + second;
}

TimePlanEntry windowOf(int weekDay, int from, int to, bool enabled = true) {
    return {TimePlanTime(from, 0, 0), TimePlanTime(to, 0, 0), weekDay, enabled};
}

TimePlanFlex planOf(const std::vector<TimePlanEntry>& entries) {
    TimePlanFlex plan;
    for (const TimePlanEntry& entry : entries)
        plan.add(entry);
    return plan;
}

class Flex : public testing::Test {
protected:
    fakes::LocalZone zone_{"UTC"};
};

const TimePlanEntry mondayMorning = windowOf(Mon, 8, 10);
const TimePlanEntry mondayMorningOff = windowOf(Mon, 8, 10, false);
const TimePlanEntry tuesdayMorning = windowOf(Tue, 8, 10);
const TimePlanEntry tuesdayMorningOff = windowOf(Tue, 8, 10, false);
const TimePlanEntry mondayEvening = windowOf(Mon, 20, 22);

void expectActiveAllWeek(const TimePlanFlex& plan) {
    for (long seconds = at(Mon, 0) - 1; seconds <= at(Sun, 24); seconds += 600)
        ASSERT_TRUE(plan.isActive(seconds)) << seconds;
}

TEST_F(Flex, WithoutEntriesIsActiveAtEveryMoment) {
    expectActiveAllWeek(TimePlanFlex());
}

TEST_F(Flex, WithoutAnEnabledEntryIsActiveAtEveryMoment) {
    expectActiveAllWeek(planOf({mondayMorningOff}));
    expectActiveAllWeek(planOf({mondayMorningOff, tuesdayMorningOff, windowOf(8, 8, 10, false)}));
}

TEST_F(Flex, AnEntryThatIsSwitchedOnRestrictsIt) {
    TimePlanFlex plan = planOf({mondayMorningOff});

    plan.add(mondayMorning);

    EXPECT_FALSE(plan.isActive(at(Mon, 7, 59, 59)));
    EXPECT_TRUE(plan.isActive(at(Mon, 8)));
    EXPECT_TRUE(plan.isActive(at(Mon, 10)));
    EXPECT_FALSE(plan.isActive(at(Mon, 10, 0, 1)));
    EXPECT_FALSE(plan.isActive(at(Tue, 9)));
    EXPECT_FALSE(plan.isActive(at(Sun, 9)));
}

struct Case {
    std::vector<TimePlanEntry> entries;
    long seconds;
    bool active;
};

const Case cases[] = {
    // inside the first, the last, none
    {{mondayMorning, tuesdayMorning, mondayEvening}, at(Mon, 9), true},
    {{mondayMorning, tuesdayMorning, mondayEvening}, at(Mon, 21), true},
    {{mondayMorning, tuesdayMorning, mondayEvening}, at(Tue, 9), true},
    {{mondayMorning, tuesdayMorning, mondayEvening}, at(Mon, 12), false},
    {{mondayMorning, tuesdayMorning, mondayEvening}, at(Wed, 9), false},
    // a disabled entry says nothing, wherever it stands
    {{mondayMorningOff, tuesdayMorning}, at(Mon, 9), false},
    {{tuesdayMorning, mondayMorningOff}, at(Mon, 9), false},
    {{mondayMorningOff, tuesdayMorning}, at(Tue, 9), true},
    {{tuesdayMorning, mondayMorningOff}, at(Tue, 9), true},
    {{mondayMorningOff, tuesdayMorning, windowOf(EveryDay, 0, 24, false)}, at(Mon, 9), false},
    // windows that overlap
    {{windowOf(EveryDay, 6, 9), mondayMorning}, at(Mon, 7), true},
    {{windowOf(EveryDay, 6, 9), mondayMorning}, at(Mon, 10), true},
    {{windowOf(EveryDay, 6, 9), mondayMorning}, at(Tue, 10), false},
    // windows that never come restrict all the same
    {{windowOf(8, 0, 24)}, at(Mon, 9), false},
    {{windowOf(EveryDay, 22, 2)}, at(Mon, 23), false},
    {{windowOf(EveryDay, 22, 2)}, at(Mon, 1), false},
    {{windowOf(EveryDay, 22, 2), mondayMorning}, at(Mon, 9), true},
    {{windowOf(Sun, 22, 24)}, at(Sun, 23, 59, 59), true},
    {{windowOf(Sun, 22, 24)}, at(Sun, 24), false},
};

TEST_F(Flex, IsActiveInAnyOfItsEnabledWindows) {
    for (const Case& given : cases) {
        const TimePlanFlex plan = planOf(given.entries);
        const auto moment = LocalMoment::at(given.seconds);
        ASSERT_TRUE(moment);
        EXPECT_EQ(plan.isActive(given.seconds), given.active) << &given - cases;
        EXPECT_EQ(plan.isActive(*moment), given.active) << &given - cases;
    }
}

TEST_F(Flex, AMomentPast2038IsOneAsAnyOther) {
    const TimePlanFlex plan = planOf({windowOf(6, 5, 6)});
    const auto moment = LocalMoment::at(std::time_t{3000000000}); // Saturday 2065-01-24 05:20:00 UTC
    ASSERT_TRUE(moment);
    EXPECT_TRUE(plan.isActive(*moment));
    const auto later = LocalMoment::at(std::time_t{3000003600});
    ASSERT_TRUE(later);
    EXPECT_FALSE(plan.isActive(*later));
}

TEST_F(Flex, AMomentThatCantBeConvertedIsInNoWindow) {
    if (sizeof(long) < sizeof(std::time_t))
        return; // every long can be converted
    for (const long seconds : {std::numeric_limits<long>::max(), std::numeric_limits<long>::min()}) {
        EXPECT_FALSE(planOf({windowOf(EveryDay, 0, 24)}).isActive(seconds));
        EXPECT_TRUE(planOf({windowOf(EveryDay, 0, 24, false)}).isActive(seconds));
        EXPECT_TRUE(TimePlanFlex().isActive(seconds));
    }
}

TEST_F(Flex, AnEntryThatIsThereIsSwitchedInsteadOfAdded) {
    TimePlanFlex plan = planOf({mondayMorning});

    plan.add(mondayMorningOff);

    EXPECT_EQ(plan.size(), 1U);
    TimePlanEntry asked = mondayMorning;
    EXPECT_FALSE(plan.getEntry(asked)->isEnabled());

    plan.add(mondayMorning);

    EXPECT_EQ(plan.size(), 1U);
    EXPECT_TRUE(plan.getEntry(asked)->isEnabled());
}

TEST_F(Flex, OnlyTheSameEntryIsSwitched) {
    TimePlanFlex plan = planOf({mondayMorning, tuesdayMorning, mondayEvening});

    plan.add(tuesdayMorningOff);

    EXPECT_TRUE(plan == planOf({mondayMorning, tuesdayMorningOff, mondayEvening}));
    EXPECT_EQ(plan.size(), 3U);
}

TEST_F(Flex, KeepsTheOrderInWhichEntriesCame) {
    TimePlanFlex plan;
    const TimePlanEntry inOrder[] = {tuesdayMorning, mondayEvening, mondayMorning};
    for (const TimePlanEntry& entry : inOrder)
        plan.add(entry);
    plan.add(tuesdayMorningOff); // stays where it is

    TimePlanEntry first = tuesdayMorning;
    TimePlanFlex::Iterator at = plan.getEntry(first);

    for (const TimePlanEntry& entry : inOrder) {
        ASSERT_NE(at, plan.end());
        EXPECT_TRUE(*at == entry);
        ++at;
    }
    EXPECT_EQ(at, plan.end());
}

TEST_F(Flex, GivesTheEntryThatIsAskedForWhateverItsSwitch) {
    TimePlanFlex plan = planOf({mondayMorning, tuesdayMorning});
    TimePlanEntry asked = tuesdayMorningOff;

    const TimePlanFlex::Iterator found = plan.getEntry(asked);

    ASSERT_NE(found, plan.end());
    EXPECT_TRUE(*found == tuesdayMorning);
    EXPECT_TRUE(found->isEnabled());
    EXPECT_EQ(std::next(found), plan.end());
    EXPECT_FALSE(asked.isEnabled()); // as it was
}

TEST_F(Flex, AnEntryThatIsGivenCanBeSwitchedInPlace) {
    TimePlanFlex plan = planOf({mondayMorningOff});
    TimePlanEntry asked = mondayMorning;

    plan.getEntry(asked)->setEnable(true);

    EXPECT_FALSE(plan.isActive(at(Tue, 9)));
}

TEST_F(Flex, GivesItsEndWhereThereIsNoSuchEntry) {
    TimePlanFlex empty;
    TimePlanFlex plan = planOf({mondayMorning});
    TimePlanEntry asked = tuesdayMorning;
    EXPECT_EQ(plan.getEntry(asked), plan.end());
    EXPECT_EQ(empty.getEntry(asked), empty.end());
}

TEST_F(Flex, KnowsWhichEntriesItHas) {
    TimePlanFlex plan = planOf({mondayMorning, tuesdayMorningOff});
    EXPECT_TRUE(plan._exist(mondayMorning));
    EXPECT_TRUE(plan._exist(mondayMorningOff));
    EXPECT_TRUE(plan._exist(tuesdayMorning));
    EXPECT_FALSE(plan._exist(mondayEvening));
    EXPECT_FALSE(TimePlanFlex()._exist(mondayMorning));
}

struct EqualityCase {
    std::vector<TimePlanEntry> one;
    std::vector<TimePlanEntry> other;
    bool oneHasTheOther;
    bool otherHasTheOne;
};

const EqualityCase equalityCases[] = {
    {{}, {}, true, true},
    {{mondayMorning}, {mondayMorning}, true, true},
    {{mondayMorning, tuesdayMorning}, {tuesdayMorning, mondayMorning}, true, true},
    // more entries equal fewer, and not the other way round
    {{mondayMorning, tuesdayMorning}, {mondayMorning}, true, false},
    {{mondayMorning, tuesdayMorning}, {tuesdayMorning}, true, false},
    {{mondayMorning}, {}, true, false},
    {{mondayMorningOff}, {}, true, false},
    // the same windows, switched differently
    {{mondayMorning}, {mondayMorningOff}, false, false},
    {{mondayMorning, tuesdayMorning}, {mondayMorning, tuesdayMorningOff}, false, false},
    {{mondayMorning, tuesdayMorning}, {tuesdayMorningOff}, false, false},
    // as many, and others
    {{mondayMorning}, {tuesdayMorning}, false, false},
    {{mondayMorning, tuesdayMorning}, {mondayMorning, mondayEvening}, false, false},
};

TEST_F(Flex, EqualsAnyPlanWhoseEntriesItHasSwitchedTheSameWay) {
    for (const EqualityCase& given : equalityCases) {
        SCOPED_TRACE(&given - equalityCases);
        const TimePlanFlex one = planOf(given.one);
        const TimePlanFlex other = planOf(given.other);
        EXPECT_EQ(one == other, given.oneHasTheOther);
        EXPECT_EQ(one != other, !given.oneHasTheOther);
        EXPECT_EQ(other == one, given.otherHasTheOne);
        EXPECT_EQ(other != one, !given.otherHasTheOne);
    }
}

TEST_F(Flex, ACopyIsAPlanOfItsOwn) {
    const TimePlanFlex original = planOf({mondayMorning});
    TimePlanFlex copy = original;

    copy.add(mondayMorningOff);
    copy.add(tuesdayMorning);

    EXPECT_EQ(original.size(), 1U);
    EXPECT_TRUE(original == planOf({mondayMorning}));
}

} // namespace
