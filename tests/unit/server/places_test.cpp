#include "store/server/places.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using testing::HasSubstr;
using testing::IsNull;

constexpr uid_t root = 0;
constexpr uid_t somebody = 4000000001;
constexpr uid_t another = 4000000002;
constexpr uid_t third = 4000000003;

class PlacesTest : public testing::Test {
protected:
    const char* refusal(uid_t user) const { return places.refusal({1, user, 1}); }
    // How many of so many come in.
    std::size_t enter(uid_t user, std::size_t count) {
        std::size_t in = 0;
        for (; in < count && refusal(user) == nullptr; ++in)
            places.take(user);
        return in;
    }

    store::Places places{store::Places::Limits()};
};

TEST_F(PlacesTest, RootMayHaveAll) {
    EXPECT_EQ(enter(root, 200), 128U);
    EXPECT_THAT(refusal(root), HasSubstr("all places are taken"));
}

TEST_F(PlacesTest, AnotherUserHasAtMost56) {
    EXPECT_EQ(enter(somebody, 200), 56U);
    EXPECT_THAT(refusal(somebody), HasSubstr("one user has all the places that it may have"));
    EXPECT_EQ(enter(another, 1), 1U);
}

TEST_F(PlacesTest, TheLast16AreForRootAndTheServersOwnUser) {
    EXPECT_EQ(enter(somebody, 200) + enter(another, 200) + enter(third, 200), 112U);
    EXPECT_THAT(refusal(third), HasSubstr("kept for root"));
    EXPECT_EQ(enter(root, 8) + enter(geteuid(), 200), 16U);
    EXPECT_THAT(refusal(geteuid()), HasSubstr("all places are taken"));
}

TEST_F(PlacesTest, RootTakesThemFromTheOthersToo) {
    EXPECT_EQ(enter(root, 100), 100U);
    EXPECT_EQ(enter(somebody, 200), 12U);
}

TEST_F(PlacesTest, APlaceThatIsGivenBackIsFree) {
    ASSERT_EQ(enter(somebody, 200), 56U);
    places.giveBack(somebody);
    EXPECT_EQ(enter(somebody, 200), 1U);
    ASSERT_EQ(enter(root, 200), 72U);
    places.giveBack(somebody);
    EXPECT_THAT(refusal(root), IsNull());
}

} // namespace
