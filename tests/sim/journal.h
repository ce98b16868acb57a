#pragma once

#include "simulation/machine.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>

namespace sim {

// A moment of the clock in the local time zone, with its offset: 2026-03-29T03:00:02+0200.
std::string isoTime(std::time_t moment);

// What happened in a household: it keeps the last of it to be read, and a digest of all of it, so that two
// runs can be compared. What happens several times in a row is one entry.
class Journal {
public:
    static constexpr std::size_t kept = 30;

    // Not owned.
    explicit Journal(orv::simulation::Machine& machine) : machine_(machine) {}

    // `what` is a constant text: it is not copied. The code is the result of an operation, 0 for success.
    void note(const char* what, std::string_view about, int code = 0);

    std::uint64_t digest() const { return digest_; }
    // The last entries, a line each, the latest at the end.
    std::string text() const;

private:
    struct Entry {
        std::time_t clock = 0;
        const char* what = "";
        std::string about;
        int code = 0;
        unsigned times = 0;
    };

    void digest(std::uint64_t number);
    void digest(std::string_view text);

    orv::simulation::Machine& machine_;
    std::array<Entry, kept> entries_;
    std::uint64_t size_ = 0; // entries so far; the last ones are kept
    std::uint64_t digest_ = 0xCBF29CE484222325U;
};

} // namespace sim
