#include "store/storage/logcheck.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <istream>
#include <string_view>

namespace store {

namespace {

// The log's format is part of SQLite's file format, which does not change.
constexpr std::size_t headerBytes = 32;
constexpr std::size_t frameHeaderBytes = 24;
constexpr std::uint32_t magic = 0x377f0682; // its last bit says that checksums are of big-endian words
constexpr std::uint32_t leastPage = 512;
constexpr std::uint32_t largestPage = 65536;
constexpr std::uint32_t usualPage = 2048; // of our databases, if the header is unreadable

std::uint32_t wordAt(std::string_view bytes, std::size_t at, bool bigEndian) {
    std::uint32_t word = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        const std::size_t place = bigEndian ? i : 3 - i;
        word = (word << 8) | static_cast<std::uint8_t>(bytes[at + place]);
    }
    return word;
}

std::uint32_t fieldAt(std::string_view bytes, std::size_t field) {
    return wordAt(bytes, field * 4, true);
}

struct Checksum {
    std::uint32_t first = 0;
    std::uint32_t second = 0;

    void add(std::string_view bytes, bool bigEndian) {
        for (std::size_t at = 0; at + 8 <= bytes.size(); at += 8) {
            first += wordAt(bytes, at, bigEndian) + second;
            second += wordAt(bytes, at + 4, bigEndian) + first;
        }
    }
    bool operator==(const Checksum& other) const { return first == other.first && second == other.second; }
};

struct Salt {
    std::uint32_t first = 0;
    std::uint32_t second = 0;

    bool operator==(const Salt& other) const { return first == other.first && second == other.second; }
};

// What the log's header says.
struct Layout {
    std::uint32_t pageBytes = usualPage;
    bool bigEndian = false;
    Salt salt;
    Checksum stored;
    bool isSound = false;
};

Layout layoutFrom(std::string_view header) {
    Layout layout;
    const std::uint32_t pageBytes = fieldAt(header, 2);
    const bool possible =
        (fieldAt(header, 0) & ~1U) == magic && pageBytes >= leastPage && pageBytes <= largestPage;
    if (!possible)
        return layout;
    layout.pageBytes = pageBytes;
    layout.bigEndian = (fieldAt(header, 0) & 1U) != 0;
    layout.salt = {fieldAt(header, 4), fieldAt(header, 5)};
    layout.stored = {fieldAt(header, 6), fieldAt(header, 7)};
    Checksum sum;
    sum.add(header.substr(0, 24), layout.bigEndian);
    layout.isSound = sum == layout.stored;
    return layout;
}

// The frames of a log from the first to the last.
class Frames {
public:
    Frames(std::istream& file, const Layout& layout)
        : file_(file),
          frame_(frameHeaderBytes + layout.pageBytes, '\0'),
          bigEndian_(layout.bigEndian),
          salt_(layout.salt),
          stored_(layout.stored) {
        file_.clear();
        file_.seekg(headerBytes);
    }

    bool next() {
        if (!file_.read(frame_.data(), static_cast<std::streamsize>(frame_.size())))
            return false;
        position_ = end_;
        end_ += static_cast<std::int64_t>(frame_.size());
        Checksum sum = stored_;
        sum.add(std::string_view(frame_).substr(0, 8), bigEndian_);
        sum.add(std::string_view(frame_).substr(frameHeaderBytes), bigEndian_);
        stored_ = {fieldAt(frame_, 4), fieldAt(frame_, 5)};
        continues_ = sum == stored_;
        return true;
    }
    // Whether the frame that next() read belongs to this log, and is no remnant of one that this log
    // overwrites.
    bool isOfThisLog() const { return fieldAt(frame_, 0) != 0 && salt() == salt_; }
    // Whether its checksum also continues that of the frame before it.
    bool isSound() const { return isOfThisLog() && continues_; }
    bool endsCommit() const { return fieldAt(frame_, 1) != 0; }
    Salt salt() const { return {fieldAt(frame_, 2), fieldAt(frame_, 3)}; }
    std::int64_t position() const { return position_; }

private:
    std::istream& file_;
    std::string frame_;
    bool bigEndian_;
    Salt salt_;
    Checksum stored_; // the checksum in the last frame that was read
    bool continues_ = false;
    std::int64_t position_ = 0;
    std::int64_t end_ = headerBytes;
};

// Counts the complete commits after a damaged frame, which is the current one. The transaction that was being
// written when the power failed is not among them: its own last frame may be there, but no other commit
// follows it.
std::uint64_t commitsBehind(Frames& frames) {
    bool ownEnd = frames.isOfThisLog() && frames.endsCommit();
    std::uint64_t commits = 0;
    while (frames.next()) {
        if (!frames.isSound() || !frames.endsCommit())
            continue;
        if (ownEnd)
            ++commits;
        ownEnd = true;
    }
    return commits;
}

// Counts the commits in a log of that layout. Frames with the salt of the first one belong to it.
std::uint64_t commitsOf(std::istream& file, Layout layout) {
    Frames first(file, layout);
    if (!first.next())
        return 0;
    layout.salt = first.salt();
    std::uint64_t commits = 0;
    for (Frames frames(file, layout); frames.next();)
        commits += frames.isSound() && frames.endsCommit() ? 1U : 0U;
    return commits;
}

// The same for a log with a damaged header, of which SQLite reads nothing: the most that any layout finds.
std::uint64_t commitsWithoutHeader(std::istream& file, Layout layout) {
    std::uint64_t most = 0;
    for (const std::uint32_t pageBytes : {layout.pageBytes, usualPage}) {
        for (const bool bigEndian : {false, true}) {
            layout.pageBytes = pageBytes;
            layout.bigEndian = bigEndian;
            most = std::max(most, commitsOf(file, layout));
        }
    }
    return most;
}

} // namespace

std::string LogLoss::text() const {
    return "the log is damaged at byte " + std::to_string(position) + ": " + std::to_string(lost) +
           " commits or more behind it, and the one that it hit, are lost; " + std::to_string(kept) +
           " commits in front of it are kept";
}

std::optional<LogLoss> lossIn(const std::string& logPath) {
    std::ifstream file(logPath, std::ios::binary);
    std::array<char, headerBytes> header{};
    if (!file.read(header.data(), header.size()))
        return std::nullopt;
    const Layout layout = layoutFrom({header.data(), header.size()});
    LogLoss loss;
    if (!layout.isSound) {
        loss.lost = commitsWithoutHeader(file, layout);
        return loss.lost > 0 ? std::optional<LogLoss>(loss) : std::nullopt;
    }
    Frames frames(file, layout);
    while (frames.next()) {
        if (!frames.isSound()) {
            loss.position = frames.position();
            loss.lost = commitsBehind(frames);
            break;
        }
        loss.kept += frames.endsCommit() ? 1U : 0U;
    }
    return loss.lost > 0 ? std::optional<LogLoss>(loss) : std::nullopt;
}

} // namespace store
