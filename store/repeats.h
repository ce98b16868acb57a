#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace store::log {

// Log lines that a client can cause as often as it likes. The first of a kind goes out at once; those of the
// same kind that follow within a minute are counted, and one line at its end says how many they were. While
// they go on there is one line a minute.
//
// The kind is what the caller says, not the text: it must hold nothing that a client chooses, no process
// number and no name that the client gives, but what happened and the user, say "not permitted 1000". Kinds
// beyond the room for them count as one.
class Repeats {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    static constexpr auto window = std::chrono::minutes(1);
    static constexpr std::size_t roomForKinds = 64;

    void warn(const std::string& kind, const std::string& text, TimePoint now) {
        say(Level::Warning, kind, text, now);
    }
    void error(const std::string& kind, const std::string& text, TimePoint now) {
        say(Level::Error, kind, text, now);
    }

    // When flush() is due next. None while nothing is counted: there is nothing to wake up for.
    std::optional<TimePoint> deadline() const;
    // Tells what was counted in the minutes that are over.
    void flush(TimePoint now);
    // Tells all that is counted, at the end of the program.
    void flushAll();

private:
    enum class Level : std::uint8_t { Warning, Error };

    struct Entry {
        TimePoint until; // the end of its minute
        std::uint64_t count = 0;
        Level level = Level::Warning;
        std::string last; // of those that are counted
    };
    using Entries = std::map<std::string, Entry>;

    static void write(Level level, const std::string& text);
    static void tell(const Entry& entry, std::uint64_t count);

    void say(Level level, const std::string& kind, const std::string& text, TimePoint now);

    Entries entries_;
};

} // namespace store::log
