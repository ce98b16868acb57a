#include "velta/protocol/resultcode.h"

#include <set>

#include <gtest/gtest.h>

namespace velta::protocol {
namespace {

TEST(ResultCode, IsSuccessUntilMadeFromACode) {
    const EResultCode result;

    EXPECT_TRUE(result.ok());
    EXPECT_EQ(result.code(), 0);
    EXPECT_EQ(result.strerror(), "success");
}

TEST(ResultCode, IsNotOkWithAnyOtherCode) {
    for (const int number : {code::failure, code::readOnly, -1})
        EXPECT_FALSE(EResultCode(number).ok()) << number;
}

TEST(ResultCode, TextEndsWithWhatItIsAbout) {
    EXPECT_EQ(EResultCode(code::unknownTable).strerror(), "unknown table");
    EXPECT_EQ(EResultCode(code::unknownTable, "Wlan").strerror(), "unknown table: Wlan");
}

TEST(ResultCode, EveryCodeHasATextOfItsOwn) {
    std::set<std::string> texts;

    for (int number = code::success; number <= code::mixedChange; ++number)
        texts.insert(EResultCode(number).strerror());

    EXPECT_EQ(texts.size(), static_cast<std::size_t>(code::mixedChange) + 1);
    for (const std::string& text : texts)
        EXPECT_NE(text.substr(0, 6), "error ");
}

TEST(ResultCode, CodeOfANewerStoreIsNamedByItsNumber) {
    EXPECT_EQ(EResultCode(4711, "moon").strerror(), "error 4711: moon");
}

} // namespace
} // namespace velta::protocol
