#include "store/storage/logcheck.h"

#include <array>
#include <fstream>
#include <string_view>

namespace store {

namespace {

// As https://www.sqlite.org/walformat.html has it.
constexpr std::size_t headerBytes = 32;
constexpr std::size_t frameHeaderBytes = 24;
constexpr std::uint32_t magic = 0x377f0682; // its last bit says that checksums are of big-endian words
constexpr std::uint32_t leastPage = 512;
constexpr std::uint32_t largestPage = 65536;

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

// The frames of a log from the first to the last.
class Frames {
public:
    explicit Frames(const std::string& path) : file_(path, std::ios::binary) {}

    // False where there is no log, or one whose beginning is not to be understood.
    bool begin() {
        std::array<char, headerBytes> header{};
        if (!file_.read(header.data(), header.size()))
            return false;
        const std::string_view bytes(header.data(), header.size());
        const std::uint32_t pageBytes = fieldAt(bytes, 2);
        if ((fieldAt(bytes, 0) & ~1U) != magic || pageBytes < leastPage || pageBytes > largestPage)
            return false;
        bigEndian_ = (fieldAt(bytes, 0) & 1U) != 0;
        salt_ = {fieldAt(bytes, 4), fieldAt(bytes, 5)};
        stored_ = {fieldAt(bytes, 6), fieldAt(bytes, 7)};
        Checksum sum;
        sum.add(bytes.substr(0, 24), bigEndian_);
        headerIsSound_ = sum == stored_;
        frame_.resize(frameHeaderBytes + pageBytes);
        return true;
    }
    bool headerIsSound() const { return headerIsSound_; }

    bool next() {
        if (!file_.read(frame_.data(), static_cast<std::streamsize>(frame_.size())))
            return false;
        position_ = count_ == 0 ? headerBytes : position_ + static_cast<std::int64_t>(frame_.size());
        ++count_;
        const std::string_view bytes(frame_);
        Checksum sum = stored_;
        sum.add(bytes.substr(0, 8), bigEndian_);
        sum.add(bytes.substr(frameHeaderBytes), bigEndian_);
        stored_ = {fieldAt(bytes, 4), fieldAt(bytes, 5)};
        isOfThisLog_ = fieldAt(bytes, 0) != 0 && Salt{fieldAt(bytes, 2), fieldAt(bytes, 3)} == salt_;
        continues_ = sum == stored_;
        return true;
    }
    // Of the frame that next() read: whether it belongs to this log and not to one that it overwrites,
    // whether it is as it was written behind the one in front of it, and whether a commit ends with it.
    bool isOfThisLog() const { return isOfThisLog_; }
    bool isSound() const { return isOfThisLog_ && continues_; }
    bool endsCommit() const { return fieldAt(frame_, 1) != 0; }
    std::int64_t position() const { return position_; }

private:
    std::ifstream file_;
    std::string frame_;
    bool bigEndian_ = false;
    bool headerIsSound_ = false;
    Salt salt_;
    Checksum stored_; // of the frame that was read last
    bool isOfThisLog_ = false;
    bool continues_ = false;
    std::uint64_t count_ = 0;
    std::int64_t position_ = 0;
};

// Complete commits behind a damaged frame, on which the frames stand. The transaction that was being written
// when the power went is not one of them: its own end may be there, but nothing is behind it.
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

} // namespace

std::string LogLoss::text() const {
    return "the log is damaged at byte " + std::to_string(position) + ": " + std::to_string(lost) +
           " commits or more behind it, and the one that it hit, are lost; " + std::to_string(kept) +
           " commits in front of it are kept";
}

std::optional<LogLoss> lossIn(const std::string& logPath) {
    Frames frames(logPath);
    if (!frames.begin())
        return std::nullopt;
    LogLoss loss;
    if (!frames.headerIsSound()) {
        while (frames.next())
            loss.lost += frames.isSound() && frames.endsCommit() ? 1U : 0U;
        return loss.lost > 0 ? std::optional<LogLoss>(loss) : std::nullopt;
    }
    while (frames.next()) {
        if (frames.isSound()) {
            loss.kept += frames.endsCommit() ? 1U : 0U;
            continue;
        }
        loss.position = frames.position();
        loss.lost = commitsBehind(frames);
        return loss.lost > 0 ? std::optional<LogLoss>(loss) : std::nullopt;
    }
    return std::nullopt;
}

} // namespace store
