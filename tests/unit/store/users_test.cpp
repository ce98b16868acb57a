#include "store/users.h"

#include <gtest/gtest.h>

namespace {

TEST(UserText, HasNameAndNumber) {
    EXPECT_EQ(store::userText(0), "user root (0)");
}

TEST(UserText, HasTheNumberAloneWhereThereIsNoName) {
    EXPECT_EQ(store::userText(54321), "user 54321");
}

} // namespace
