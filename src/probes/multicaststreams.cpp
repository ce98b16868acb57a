#include "probes/multicaststreams.h"

#include "orv/string.h"
#include "probes/kernelfile.h"
#include "probes/stringhelpers.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <map>
#include <optional>
#include <utility>

namespace orv {

const char* ipMrCacheFile = "/proc/net/ip_mr_cache";
const char* ip6MrCacheFile = "/proc/net/ip6_mr_cache";
const char* ipMrVifFile = "/proc/net/ip_mr_vif";
const char* ip6MrVifFile = "/proc/net/ip6_mr_vif";

namespace {

enum CacheColumn : std::size_t { Group, Origin, InputInterface, FirstOutputInterface = 6 };
enum VifColumn : std::size_t { Index, Name };

// A row of one of the kernel's tables, split into columns, of which there may be too few.
class Row {
public:
    explicit Row(std::string line) : line_(std::move(line)) {
        string::ltrim(line_);
        string::rtrim(line_);
        replaceDoubleSpaces(line_);
        string::SeparatedStringtoList(line_, columns_, ' ');
    }

    bool has(std::size_t index) const { return index < columns_.size(); }
    // Empty where the row has no such column.
    std::string column(std::size_t index) const {
        return has(index) ? *std::next(columns_.begin(), static_cast<std::ptrdiff_t>(index)) : std::string();
    }
    // The rest of the row, from the first occurrence of the column's text on. That may be earlier than the
    // column itself.
    std::string from(std::size_t index) const {
        return has(index) ? line_.substr(line_.find(column(index))) : std::string();
    }

private:
    std::string line_;
    std::list<std::string> columns_;
};

// Consecutive groups: the first one, and their number.
struct GroupRange {
    std::uint32_t first;
    std::uint32_t size;
};
constexpr GroupRange localGroups[] = {
    // no television
    {0xE0000000, 0x100},     // 224.0.0.0/24
    {0xEF000000, 0x1000000}, // 239.0.0.0/8
};

// A signed 32-bit number on every machine: from 80000000 on it is 7FFFFFFF. C17: sic
std::int32_t groupNumber(const std::string& group) {
    const long long number = std::strtoll(group.c_str(), nullptr, 16);
    return static_cast<std::int32_t>(std::clamp<long long>(number, INT32_MIN, INT32_MAX));
}

// All but the groups of the local network's own protocols are television.
bool isTelevision(const std::string& group, MulticastStreamInfo::EIpProtocolVersion version) {
    if (version != MulticastStreamInfo::IPv4)
        return true;
    const auto number = static_cast<std::uint32_t>(groupNumber(group));
    return std::none_of(std::begin(localGroups), std::end(localGroups),
                        [number](const GroupRange& range) { return number - range.first < range.size; });
}

const char* cacheFile(MulticastStreamInfo::EIpProtocolVersion version) {
    return version != MulticastStreamInfo::IPv4 ? ip6MrCacheFile : ipMrCacheFile;
}

const char* interfaceFile(MulticastStreamInfo::EIpProtocolVersion version) {
    return version != MulticastStreamInfo::IPv4 ? ip6MrVifFile : ipMrVifFile;
}

// The rows of one of the kernel's tables, below its header. A table that can't be read counts as empty.
class Rows {
public:
    explicit Rows(const std::string& path) : file_(path) { (void)next(); }

    bool next() { return file_.readLine(line_); }
    const std::string& line() const { return line_; }

private:
    KernelFile file_;
    std::string line_;
};

bool hasTelevision(MulticastStreamInfo::EIpProtocolVersion version) {
    Rows rows(cacheFile(version));
    while (rows.next())
        if (!rows.line().empty() && isTelevision(Row(rows.line()).column(Group), version))
            return true;
    return false;
}

} // namespace

// An interface table, which is read once, at the first question.
class InterfaceNames {
public:
    explicit InterfaceNames(const std::string& path) : path_(path) {}

    // Empty where the table has no such index.
    std::string of(int index) {
        if (index < 0)
            return {};
        if (!nameOfIndex_)
            nameOfIndex_ = read();
        const auto found = nameOfIndex_->find(std::to_string(index));
        return found != nameOfIndex_->end() ? found->second : std::string();
    }
    std::string of(const std::string& index) { return of(string::toInteger(index)); }

private:
    using NameOfIndex = std::map<std::string, std::string>;

    // Of two rows with the same index, the first counts.
    NameOfIndex read() const {
        NameOfIndex nameOfIndex;
        Rows rows(path_);
        while (rows.next()) {
            const Row row(rows.line());
            nameOfIndex.emplace(row.column(Index), row.column(Name));
        }
        return nameOfIndex;
    }

    std::string path_;
    std::optional<NameOfIndex> nameOfIndex_;
};

MulticastStreamInfo::MulticastStreamInfo(const std::string& line, EIpProtocolVersion rowVersion)
    : vifFile(interfaceFile(rowVersion)) {
    doLoad(line, rowVersion);
}

MulticastStreamInfo::MulticastStreamInfo(const std::string& line, EIpProtocolVersion rowVersion,
                                         InterfaceNames& names)
    : vifFile(interfaceFile(rowVersion)) {
    load(line, rowVersion, names);
}

void MulticastStreamInfo::doLoad(const std::string& line, EIpProtocolVersion rowVersion) {
    InterfaceNames names(vifFile);
    load(line, rowVersion, names);
}

void MulticastStreamInfo::load(const std::string& line, EIpProtocolVersion rowVersion,
                               InterfaceNames& names) {
    version = rowVersion;
    const Row row(line);
    group = row.column(Group);
    origin = row.column(Origin);
    inputInterface.clear();
    if (row.has(InputInterface)) // an empty text would count as index 0
        inputInterface = names.of(row.column(InputInterface));
    std::map<std::string, std::string> ttlOfIndex;
    string::SeparatedStringtoMap(row.from(FirstOutputInterface), ttlOfIndex, ':', ' ');
    outputInterfaces.clear();
    for (const auto& [index, ttl] : ttlOfIndex)
        outputInterfaces.push_back(names.of(index));
    loaded = 1;
}

bool MulticastStreamInfo::isIPTV() const {
    return isTelevision(group, version);
}

std::string MulticastStreamInfo::getInterfaceNameByIndex(int index, const std::string& vifFile) {
    return InterfaceNames(vifFile).of(index);
}

std::string MulticastStreamInfo::getInterfaceNameByIndex(const std::string& index,
                                                         const std::string& vifFile) {
    return InterfaceNames(vifFile).of(index);
}

void MulticastStreams::doLoad(MulticastStreamInfo::EIpProtocolVersion version) {
    if (version == MulticastStreamInfo::IPv4 || version == MulticastStreamInfo::Both)
        loadCache(MulticastStreamInfo::IPv4);
    if (version == MulticastStreamInfo::IPv6 || version == MulticastStreamInfo::Both)
        loadCache(MulticastStreamInfo::IPv6);
}

void MulticastStreams::loadCache(MulticastStreamInfo::EIpProtocolVersion version) {
    Rows rows(cacheFile(version));
    InterfaceNames names(interfaceFile(version));
    while (rows.next())
        if (!rows.line().empty())
            streams_.emplace_back(rows.line(), version, names);
}

bool MulticastStreams::isIPTVRunning() const {
    return std::any_of(streams_.begin(), streams_.end(),
                       [](const MulticastStreamInfo& stream) { return stream.isIPTV(); });
}

// The same answer as MulticastStreams gives for both versions, but without looking up the names of
// interfaces.
bool isIPTVStreamRunning() {
    return hasTelevision(MulticastStreamInfo::IPv4) || hasTelevision(MulticastStreamInfo::IPv6);
}

} // namespace orv
