#include "tools/cfgctl/idset.h"

#include <cstdint>

#include <gtest/gtest.h>

namespace tools::cfgctl {
namespace {

TEST(IdSet, TakesEachIdOnce) {
    IdSet ids;
    for (const std::uint32_t id : {5U, 7U, 1U, 6U, 0U, 4294967295U})
        EXPECT_TRUE(ids.insert(id)) << id;
    for (const std::uint32_t id : {5U, 7U, 1U, 6U, 0U, 4294967295U})
        EXPECT_FALSE(ids.insert(id)) << id;
    EXPECT_EQ(ids.size(), 6U);
}

TEST(IdSet, KnowsWhatIsNotInIt) {
    IdSet ids;
    EXPECT_FALSE(ids.contains(0));
    for (const std::uint32_t id : {5U, 1U})
        (void)ids.insert(id);
    for (const std::uint32_t id : {0U, 2U, 4U, 6U})
        EXPECT_FALSE(ids.contains(id)) << id;
}

// Each a multiple of 7, in an order that looks like none, so that late ones are merged in several times.
TEST(IdSet, HoldsManyInAnyOrder) {
    constexpr std::uint32_t count = 50021; // a prime
    IdSet ids;
    for (std::uint32_t i = 0; i < count; ++i)
        ASSERT_TRUE(ids.insert(7 * (i * 4099 % count))) << i;
    EXPECT_EQ(ids.size(), count);
    for (std::uint32_t number = 0; number < 7 * count; ++number)
        ASSERT_EQ(ids.contains(number), number % 7 == 0) << number;
}

} // namespace
} // namespace tools::cfgctl
