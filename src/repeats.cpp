#include "repeats.h"

#include <algorithm>
#include <utility>

namespace orv::horad {

namespace {

bool operator==(const LogOrigin& one, const LogOrigin& other) {
    return one.level == other.level && one.module == other.module; // the source does not count
}

} // namespace

bool Repeats::Entry::isFull(TimePoint now) const {
    return seen == latest.size() && now - latest[oldest] < window;
}

void Repeats::Entry::see(TimePoint now) {
    latest[oldest] = now;
    oldest = (oldest + 1) % latest.size();
    seen = std::min(seen + 1, latest.size());
}

Repeats::TimePoint Repeats::Entry::lastSeen() const {
    return latest[(oldest + latest.size() - 1) % latest.size()];
}

void Repeats::put(const LogOrigin& origin, const char* text, TimePoint now) {
    tell(now);
    Entry* entry = find(origin, text);
    if (entry == nullptr)
        entry = remember(origin, text, now);
    const bool counts = entry != nullptr && entry->isFull(now);
    if (entry != nullptr)
        entry->see(now);
    if (!counts) {
        write_(origin, text);
        return;
    }
    if (entry->count == 0)
        entry->countedSince = now;
    ++entry->count;
}

Repeats::Entry* Repeats::find(const LogOrigin& origin, const char* text) {
    const auto found = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) {
        return entry.origin == origin && entry.text == text;
    });
    return found != entries_.end() ? &*found : nullptr;
}

// None where there is no room.
Repeats::Entry* Repeats::remember(const LogOrigin& origin, const char* text, TimePoint now) {
    Entry fresh;
    fresh.origin = origin;
    fresh.text = text;
    if (entries_.size() < room)
        return &entries_.emplace_back(std::move(fresh));
    const auto quietest =
        std::min_element(entries_.begin(), entries_.end(), [](const Entry& one, const Entry& other) {
            return one.lastSeen() < other.lastSeen();
        });
    if (now - quietest->lastSeen() < leastQuiet)
        return nullptr;
    tell(*quietest);
    *quietest = std::move(fresh);
    return &*quietest;
}

void Repeats::tell(TimePoint now) {
    refill(now);
    for (Entry* due = longestDue(now); due != nullptr && tellingsLeft_ > 0; due = longestDue(now)) {
        --tellingsLeft_;
        tell(*due);
    }
}

void Repeats::refill(TimePoint now) {
    const auto windows = (now - refilledAt_) / window;
    refilledAt_ += windows * window;
    if (windows > 0)
        tellingsLeft_ = windows < tellingsAtFirst
                            ? std::min(tellingsAtFirst,
                                       tellingsLeft_ + static_cast<unsigned>(windows) * tellingsPerWindow)
                            : tellingsAtFirst;
}

Repeats::Entry* Repeats::longestDue(TimePoint now) {
    Entry* longest = nullptr;
    for (Entry& entry : entries_)
        if (entry.count > 0 && now - entry.countedSince >= window &&
            (longest == nullptr || entry.countedSince < longest->countedSince))
            longest = &entry;
    return longest;
}

void Repeats::tellAll() {
    for (Entry& entry : entries_)
        tell(entry);
    entries_.clear();
}

void Repeats::tell(Entry& entry) {
    const unsigned count = std::exchange(entry.count, 0);
    if (count == 0)
        return;
    std::string text =
        "repeated " + std::to_string(count) + (count == 1 ? " time: " : " times: ") + entry.text;
    text.resize(std::min(text.size(), logTextLimit));
    write_(entry.origin, text.c_str());
}

} // namespace orv::horad
