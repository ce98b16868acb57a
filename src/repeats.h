#pragma once

#include "orv/sysloglevel.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace orv::horad {

inline constexpr std::size_t logTextLimit = 1023; // characters

enum class LogLevel : std::uint8_t { Error, Warning, Info, Debug };

// What a line of the log carries beside its text.
struct LogOrigin {
    LogLevel level;
    const ORV_Sysloglevel_Modul* module;
    const char* source;
};

// Keeps a log readable while something goes wrong over and over. Lines are equal if level, module and text
// are. Three of them within a minute are written, those that follow are counted and told by one line:
// "repeated 50 times: TEXT". It comes a minute after the first that was counted, and then every minute.
//
// If much repeats for hours, tellings take turns: after the first ones there are two a minute.
class Repeats {
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    using Write = std::function<void(const LogOrigin& origin, const char* text)>;

    static constexpr std::chrono::seconds window{60};
    static constexpr std::size_t writtenInWindow = 3;
    // How many different lines are remembered. A new one takes the place of the one that was quiet the
    // longest, for some seconds at least. Where there is none it is written and not remembered.
    static constexpr std::size_t room = 64;
    static constexpr std::chrono::seconds leastQuiet{10};
    static constexpr unsigned tellingsAtFirst = 30;
    static constexpr unsigned tellingsPerWindow = 2;

    explicit Repeats(Write write) : write_(std::move(write)) {}

    // Writes the line or counts it.
    void put(const LogOrigin& origin, const char* text, TimePoint now);
    // Tells what is due. To be called every few seconds.
    void tell(TimePoint now);
    // Tells all that was counted, at the end of the program.
    void tellAll();

private:
    struct Entry {
        // Whether the lines of a minute were written.
        bool isFull(TimePoint now) const;
        void see(TimePoint now);
        TimePoint lastSeen() const;

        LogOrigin origin{};
        std::string text;
        std::array<TimePoint, writtenInWindow> latest{}; // when it came; a ring
        std::size_t oldest = 0;                          // the place of the oldest of them
        std::size_t seen = 0;                            // how many of them there are
        unsigned count = 0;                              // of lines that were neither written nor told
        TimePoint countedSince;
    };

    Entry* find(const LogOrigin& origin, const char* text);
    Entry* remember(const LogOrigin& origin, const char* text, TimePoint now);
    Entry* longestDue(TimePoint now);
    void refill(TimePoint now);
    void tell(Entry& entry);

    Write write_;
    std::vector<Entry> entries_;
    unsigned tellingsLeft_ = tellingsAtFirst;
    TimePoint refilledAt_;
};

} // namespace orv::horad
