// What is made once for the whole process is made at the next use where the first one finds no memory. This
// runs before anything else of this program uses it.

#include "simulation/schema.h"
#include "unit/lackofmemory/failingplaces.h"

#include <new>

#include <gtest/gtest.h>

namespace {

bool isMade(std::int64_t failing) {
    try {
        failingplaces::runFailing(failing, [] { (void)orv::simulation::schema(); });
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

TEST(SimulationWithoutMemory, MakesItsSchemaAtTheNextUse) {
    const std::int64_t before = failingplaces::blocks();
    std::int64_t failing = 1;
    for (; !isMade(failing); ++failing)
        ASSERT_EQ(failingplaces::blocks(), before) << "allocation " << failing;
    EXPECT_GT(failing, 20);
    EXPECT_EQ(orv::simulation::schema().size(), 9U);
}

} // namespace
