#include "unit/server/allocations/failingmemory.h"

#include <cstdlib>
#include <new>

#include <sqlite3.h>

namespace {

bool armed = false;
std::int64_t count = 0;
std::int64_t first = 0;
std::int64_t failures = 0;

bool fails() {
    if (!armed)
        return false;
    ++count;
    return first != 0 && count >= first && count < first + failures;
}

sqlite3_mem_methods usual;

void* allocate(int size) {
    return fails() ? nullptr : usual.xMalloc(size);
}

void* resize(void* memory, int size) {
    return fails() ? nullptr : usual.xRealloc(memory, size);
}

// Before SQLite is used for the first time. Without a store of small pieces in advance each allocation is
// one.
const int configured = [] {
    sqlite3_config(SQLITE_CONFIG_GETMALLOC, &usual);
    sqlite3_mem_methods failing = usual;
    failing.xMalloc = allocate;
    failing.xRealloc = resize;
    return sqlite3_config(SQLITE_CONFIG_MALLOC, &failing) + sqlite3_config(SQLITE_CONFIG_LOOKASIDE, 0, 0);
}();

} // namespace

void* operator new(std::size_t size) {
    void* const memory = fails() ? nullptr : std::malloc(size != 0 ? size : 1);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace failingmemory {

Armed::Armed() {
    if (configured != SQLITE_OK)
        std::abort();
    armed = true;
}

Armed::~Armed() {
    armed = false;
}

void failAt(std::int64_t number, std::int64_t length) {
    count = 0;
    first = number;
    failures = length;
}

std::int64_t failing() {
    return first;
}

std::int64_t counted() {
    return count;
}

} // namespace failingmemory
