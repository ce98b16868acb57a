#pragma once

#include <stdexcept>
#include <string>

namespace tools {

// What keeps a command from being done: the store refuses it, or would, or isn't there. The text is for a
// person; it may hold text from outside as it stands.
class Refused : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Throws it with the C library's text of errno behind what it was about.
[[noreturn]] void refuseByErrno(const std::string& what);

// The command line makes no sense, whatever the store holds.
class WrongUse : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace tools
