#include "orv/error.h"

#include "orv/standarderror.h"
#include "orv/sysloglevel.h"

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>

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
    orv::writeErrorLine(text.data());
    if (syslog_)
        ORV_Sysloglevel_error(ORV_Sysloglevel_registerModul("assert"), file, line, text.data());
}

void assertionFailed(const char* expression, const char* file, int line) {
    const DefaultAssertHook* hook = currentHook;
    if (hook != nullptr)
        hook->report(expression, file, line);
    else
        orv::writeErrorLine(describe(expression, file, line).data());
    std::abort();
}

} // namespace orv::error
