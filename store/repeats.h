#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace store::log {

// Log lines that a client can cause as often as it likes. The first line of a kind is logged at once. Further
// ones of the same kind are counted for a minute; then the last of them is logged with their number. While
// they go on, that is one line a minute.
//
// The caller names the kind, which is not the line's text. It must not contain anything that a client
// chooses, such as its process id or its name, but what happened and the user: "not permitted 1000". Kinds
// beyond roomForKinds are counted together, as one.
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

    // When flush() is due next; none while nothing is counted.
    std::optional<TimePoint> deadline() const;
    // Logs what was counted in the minutes that have ended.
    void flush(TimePoint now);
    // Logs all that was counted, at the end of the program.
    void flushAll();

private:
    enum class Level : std::uint8_t { Warning, Error };

    struct Entry {
        TimePoint until; // the end of its minute
        std::uint64_t count = 0;
        Level level = Level::Warning;
        std::string last; // the last line that was counted
    };
    using Entries = std::map<std::string, Entry>;

    static void write(Level level, const std::string& text);
    static void tell(const Entry& entry, std::uint64_t count);

    void say(Level level, const std::string& kind, const std::string& text, TimePoint now);

    Entries entries_;
};

} // namespace store::log
