#pragma once

#include "tools/errors.h"

#include <functional>
#include <string>

namespace test {

struct RefusedCase {
    std::string text;
    const char* why; // behind the text in quotes
};

// What the text is refused with; empty where it is not.
inline std::string refusal(const std::function<void()>& parse) {
    try {
        parse();
    } catch (const tools::WrongUse& refused) {
        return refused.what();
    }
    return {};
}

} // namespace test
