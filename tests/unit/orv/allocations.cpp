// In a file of its own: where the compiler can inline it, it warns that malloc and new don't match.

#include "unit/orv/allocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<int> count{0};

} // namespace

void* operator new(std::size_t size) {
    ++count;
    if (void* memory = std::malloc(size != 0 ? size : 1))
        return memory;
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

int test::allocations() {
    return count;
}
