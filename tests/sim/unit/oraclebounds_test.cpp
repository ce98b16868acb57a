#include "sim/unit/oraclefixture.h"

#include <memory>
#include <vector>

#include <malloc.h>

namespace {

using namespace sim;

class OracleBounds : public testing::Test, public OracleWorld {
protected:
    OracleBounds() {
        settle();
        while (machine.passed() < 3700 * aSecond)
            pass();
    }

    void commits(int count) {
        for (int i = 0; i < count; ++i)
            commit([] {});
    }
    void anHour() {
        for (int i = 0; i < 1802; ++i)
            pass();
    }
};

TEST_F(OracleBounds, SomeCommitsAnHourAreQuiet) {
    commits(20);
    anHour();
    expectQuiet();
}

TEST_F(OracleBounds, CommitsWithoutAReasonAreSeen) {
    pass([this] { commits(60); });
    anHour();
    expectViolation("commits were expected in the last hour; there were ");
}

TEST_F(OracleBounds, CommitsHaveTheirReasonInADisturbance) {
    for (int i = 0; i < 30; ++i)
        pass([this] {
            disturbed = true;
            commits(2);
        });
    anHour();
    expectQuiet();
}

TEST_F(OracleBounds, IterationsWithoutAReasonAreSeen) {
    for (int i = 0; i < 4000; ++i)
        pass(0);
    anHour();
    expectViolation("iterations were expected in the last hour; there were ");
}

TEST_F(OracleBounds, MemoryThatGrowsIsSeen) {
    if (mallinfo2().uordblks == 0)
        GTEST_SKIP() << "the allocator does not tell";
    std::vector<std::unique_ptr<std::vector<char>>> leak;
    for (int day = 0; day < 8; ++day) {
        leak.push_back(std::make_unique<std::vector<char>>(100'000, 'x'));
        pass(86'400);
    }
    expectQuiet();
    for (int day = 0; day < 4; ++day) {
        leak.push_back(std::make_unique<std::vector<char>>(100'000, 'x'));
        pass(86'400);
    }
    expectViolation("bytes of memory were expected to be in use");
}

} // namespace
