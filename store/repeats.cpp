#include "store/repeats.h"

#include "store/log.h"

#include <algorithm>
#include <utility>

namespace store::log {

void Repeats::say(Level level, const std::string& kind, const std::string& text, TimePoint now) {
    flush(now);
    const bool hasPlace = entries_.count(kind) != 0 || entries_.size() < roomForKinds;
    const auto [place, isNew] = entries_.try_emplace(hasPlace ? kind : std::string());
    Entry& entry = place->second;
    if (isNew) {
        entry.until = now + window;
        write(level, text);
        return;
    }
    ++entry.count;
    entry.level = level;
    entry.last = text;
}

std::optional<Repeats::TimePoint> Repeats::deadline() const {
    std::optional<TimePoint> next;
    for (const auto& [kind, entry] : entries_)
        if (entry.count != 0)
            next = next ? std::min(*next, entry.until) : entry.until;
    return next;
}

void Repeats::flush(TimePoint now) {
    for (auto place = entries_.begin(); place != entries_.end();) {
        Entry& entry = place->second;
        if (now < entry.until) {
            ++place;
        } else if (entry.count == 0) {
            place = entries_.erase(place);
        } else {
            entry.until = now + window;                                // the next minute begins
            const std::uint64_t count = std::exchange(entry.count, 0); // before tell(), which may throw
            tell(entry, count);
        }
    }
}

void Repeats::flushAll() {
    for (const auto& [kind, entry] : entries_)
        if (entry.count != 0)
            tell(entry, entry.count);
    entries_.clear();
}

void Repeats::tell(const Entry& entry, std::uint64_t count) {
    const std::string many = " (the last of " + std::to_string(count) + " such lines within a minute)";
    write(entry.level, count == 1 ? entry.last : entry.last + many);
}

void Repeats::write(Level level, const std::string& text) {
    switch (level) {
    case Level::Warning:
        log::warning(text);
        break;
    case Level::Error:
        log::error(text);
        break;
    }
}

} // namespace store::log
