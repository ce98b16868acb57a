#include "orv/error.h"

#include "orv/standarderror.h"
#include "orv/sysloglevel.h"

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace orv::error {

namespace {

std::atomic<const DefaultAssertHook*> currentHook{nullptr};

// No allocation here: a broken invariant may well be a broken heap.
using Text = std::array<char, 512>;

Text describe(const char* expression, const char* file, int line) {
    Text text{};
    (void)std::snprintf(text.data(), text.size(), "assertion failed: %s (%s:%d)", expression, file, line);
    return text;
}

void writeLine(Text text) {
    const std::size_t length = std::strlen(text.data());
    text[length] = '\n'; // in the place of the zero
    (void)orv::writeToStandardError({text.data(), length + 1});
}

} // namespace

DefaultAssertHook::DefaultAssertHook() {
    currentHook = this;
}

DefaultAssertHook::~DefaultAssertHook() {
    const DefaultAssertHook* self = this;
    currentHook.compare_exchange_strong(self, nullptr); // a later hook stays
}

void DefaultAssertHook::report(const char* expression, const char* file, int line) const {
    const Text text = describe(expression, file, line);
    writeLine(text);
    if (syslog_)
        ORV_Sysloglevel_error(ORV_Sysloglevel_registerModul("assert"), file, line, text.data());
}

void assertionFailed(const char* expression, const char* file, int line) {
    const DefaultAssertHook* hook = currentHook;
    if (hook != nullptr)
        hook->report(expression, file, line);
    else
        writeLine(describe(expression, file, line));
    std::abort();
}

} // namespace orv::error
