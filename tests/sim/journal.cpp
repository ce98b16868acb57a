#include "sim/journal.h"

#include "velta/protocol/resultcode.h"

#include <algorithm>

namespace sim {

std::string isoTime(std::time_t moment) {
    char text[64] = {};
    std::tm local{};
    if (localtime_r(&moment, &local) == nullptr || std::strftime(text, sizeof text, "%FT%T%z", &local) == 0)
        return "a moment that can't be shown";
    return text;
}

void Journal::note(const char* what, std::string_view about, int code) {
    digest(static_cast<std::uint64_t>(machine_.passed()));
    digest(static_cast<std::uint64_t>(machine_.now()));
    digest(what);
    digest(about);
    digest(static_cast<std::uint64_t>(code));
    const std::time_t clock = machine_.time();
    Entry& last = entries_[(size_ + kept - 1) % kept];
    if (last.times > 0 && last.clock == clock && std::string_view(last.what) == what && last.about == about &&
        last.code == code) {
        ++last.times;
        return;
    }
    Entry& entry = entries_[size_++ % kept];
    entry.clock = clock;
    entry.what = what;
    entry.about = about;
    entry.code = code;
    entry.times = 1;
}

std::string Journal::text() const {
    std::string lines;
    for (std::uint64_t at = size_ - std::min<std::uint64_t>(size_, kept); at < size_; ++at) {
        const Entry& entry = entries_[at % kept];
        lines += isoTime(entry.clock) + "  " + entry.what + (entry.about.empty() ? "" : " ") + entry.about;
        if (entry.times > 1)
            lines += ", " + std::to_string(entry.times) + " times";
        if (entry.code != 0)
            lines += " -> " + velta::protocol::EResultCode(entry.code).strerror();
        lines += '\n';
    }
    return lines;
}

void Journal::digest(std::uint64_t number) {
    digest_ = (digest_ ^ number) * 0x100000001B3U;
    digest_ ^= digest_ >> 29;
}

void Journal::digest(std::string_view text) {
    for (const char letter : text)
        digest_ = (digest_ ^ static_cast<unsigned char>(letter)) * 0x100000001B3U;
    digest(std::uint64_t{text.size()});
}

} // namespace sim
