// Takes the place of the standard library's header for glibc, with the names that the library's other headers
// want of it: with musl there is the C locale only.
#pragma once

#include <clocale>
#include <cstdarg>
#include <cstdio>

#define _GLIBCXX_NUM_CATEGORIES 0

namespace std {

typedef int* __c_locale;

inline int __convert_from_v(const __c_locale&, char* out, const int size, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(out, static_cast<size_t>(size), format, arguments);
    va_end(arguments);
    return length;
}

} // namespace std
