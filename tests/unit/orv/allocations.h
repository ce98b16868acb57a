#pragma once

namespace test {

// How often operator new was called so far in this process.
int allocations();

} // namespace test
