#include "orv/lackofmemory.h"
#include "orv/sysloglevel.h"

#include <csignal>
#include <exception>
#include <new>
#include <stdexcept>

#include <gtest/gtest.h>

namespace {

using testing::ExitedWithCode;

template <typename Exception>
[[noreturn]] void raise(const Exception& exception) {
    throw exception;
}

template <typename Exception>
void throwWhereNothingCatches(const Exception& exception) noexcept {
    raise(exception);
}

TEST(LackOfMemoryDeathTest, EndsWithALineWhereNothingCatchesIt) {
    orv::error::endOnLackOfMemory("horad");

    EXPECT_EXIT(throwWhereNothingCatches(std::bad_alloc()), ExitedWithCode(1),
                "error horad: out of memory, the program ends");
    EXPECT_EXIT(throwWhereNothingCatches(std::bad_array_new_length()), ExitedWithCode(1), "out of memory");
}

TEST(LackOfMemoryDeathTest, EndsWithALineWhereTheExceptionItselfFindsNoMemory) {
    EXPECT_EXIT(std::terminate(), ExitedWithCode(1), "out of memory");
}

TEST(LackOfMemoryDeathTest, IsToldByAProgramThatLogsNothing) {
    orv::error::endOnLackOfMemory("silent");
    (void)ORV_Sysloglevel_registerModul("silent");
    ORV_Sysloglevel_changeTracelevel("silent", 0);

    EXPECT_EXIT(std::terminate(), ExitedWithCode(1), "error silent: out of memory");
}

TEST(LackOfMemoryDeathTest, OtherExceptionsThatNothingCatchesStillAbort) {
    EXPECT_EXIT(throwWhereNothingCatches(std::runtime_error("a defect")), testing::KilledBySignal(SIGABRT),
                "a defect");
}

} // namespace
