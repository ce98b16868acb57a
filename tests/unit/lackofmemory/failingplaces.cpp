#include "unit/lackofmemory/failingplaces.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <new>
#include <unordered_set>

#include <execinfo.h>

namespace {

// Of the thread that works; others are let be.
thread_local std::int64_t living = 0; // blocks
thread_local bool counting = false;
thread_local std::int64_t count = 0;
thread_local std::int64_t failing = 0;
thread_local std::vector<std::int64_t>* firsts = nullptr; // of each place; null where nobody looks for places
thread_local std::unordered_set<std::size_t>* known = nullptr;

// Who called whom up to this allocation, as a number.
std::size_t presentPlace() {
    constexpr int depth = 64;
    std::array<void*, depth> callers;
    const int found = backtrace(callers.data(), depth);
    std::size_t place = 0;
    for (int i = 0; i < found; ++i)
        place = place * 31 + reinterpret_cast<std::size_t>(callers[static_cast<std::size_t>(i)]);
    return place;
}

void notePlace() {
    counting = false; // what is allocated for the notes is no place
    if (known->insert(presentPlace()).second)
        firsts->push_back(count);
    counting = true;
}

bool fails() {
    if (!counting)
        return false;
    ++count;
    if (firsts != nullptr)
        notePlace();
    return count == failing;
}

class Counting {
public:
    explicit Counting(std::int64_t number) {
        count = 0;
        failing = number;
        counting = true;
    }
    ~Counting() {
        counting = false;
        failing = 0;
    }
    Counting(const Counting&) = delete;
    Counting& operator=(const Counting&) = delete;
};

} // namespace

void* operator new(std::size_t size) {
    void* const memory = fails() ? nullptr : std::malloc(size != 0 ? size : 1);
    if (memory == nullptr)
        throw std::bad_alloc();
    ++living;
    return memory;
}

void operator delete(void* memory) noexcept {
    if (memory != nullptr)
        --living;
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    operator delete(memory);
}

namespace failingplaces {

std::vector<std::int64_t> placesOf(const Work& work) {
    std::vector<std::int64_t> found;
    std::unordered_set<std::size_t> places;
    (void)presentPlace(); // its first call allocates
    firsts = &found;
    known = &places;
    {
        const Counting noted(0);
        work();
    }
    firsts = nullptr;
    known = nullptr;
    return found;
}

void runFailing(std::int64_t number, const Work& work) {
    const Counting counted(number);
    work();
}

std::int64_t blocks() {
    return living;
}

} // namespace failingplaces
