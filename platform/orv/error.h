#pragma once

// What becomes of a failed assertion: a broken invariant of ours, never bad input.
namespace orv::error {

// While one lives it is the process's hook: it reports the assertion and then the process ends with abort().
// Without one the report goes to standard error.
class DefaultAssertHook {
public:
    DefaultAssertHook();
    ~DefaultAssertHook();
    DefaultAssertHook(const DefaultAssertHook&) = delete;
    DefaultAssertHook& operator=(const DefaultAssertHook&) = delete;

    // Whether the report goes to the system log as well as to standard error. Off at first.
    void setSyslog(bool on) { syslog_ = on; }

    void report(const char* expression, const char* file, int line) const;

private:
    bool syslog_ = false;
};

[[noreturn]] void assertionFailed(const char* expression, const char* file, int line);

} // namespace orv::error

#define ORV_ASSERT(expression)                                                                               \
    ((expression) ? static_cast<void>(0) : ::orv::error::assertionFailed(#expression, __FILE__, __LINE__))
