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
#include <utility>

namespace orv {

const char* ipMrCacheFile = "/proc/net/ip_mr_cache";
const char* ip6MrCacheFile = "/proc/net/ip6_mr_cache";
const char* ipMrVifFile = "/proc/net/ip_mr_vif";
const char* ip6MrVifFile = "/proc/net/ip6_mr_vif";

namespace {

enum CacheColumn : std::size_t { Group, Origin, InputInterface, FirstOutputInterface = 6 };
enum VifColumn : std::size_t { Index, Name };

// A row of one of the kernel's tables, and the columns that it has: there may be too few.
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
    // The row from the first place on where the column's text stands. That may be in front of the column.
    std::string from(std::size_t index) const {
        return has(index) ? line_.substr(line_.find(column(index))) : std::string();
    }

private:
    std::string line_;
    std::list<std::string> columns_;
};

// Groups in a row: the first one, and how many they are.
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

} // namespace

MulticastStreamInfo::MulticastStreamInfo(const std::string& line, EIpProtocolVersion rowVersion)
    : vifFile(rowVersion != IPv4 ? ip6MrVifFile : ipMrVifFile) {
    doLoad(line, rowVersion);
}

void MulticastStreamInfo::doLoad(const std::string& line, EIpProtocolVersion rowVersion) {
    version = rowVersion;
    const Row row(line);
    group = row.column(Group);
    origin = row.column(Origin);
    inputInterface.clear();
    if (row.has(InputInterface)) // an empty text would count as index 0
        inputInterface = getInterfaceNameByIndex(row.column(InputInterface), vifFile);
    std::map<std::string, std::string> ttlOfIndex;
    string::SeparatedStringtoMap(row.from(FirstOutputInterface), ttlOfIndex, ':', ' ');
    outputInterfaces.clear();
    for (const auto& [index, ttl] : ttlOfIndex)
        outputInterfaces.push_back(getInterfaceNameByIndex(index, vifFile));
    loaded = 1;
}

bool MulticastStreamInfo::isIPTV() const {
    if (version != IPv4)
        return true;
    const auto number = static_cast<std::uint32_t>(groupNumber(group));
    return std::none_of(std::begin(localGroups), std::end(localGroups),
                        [number](const GroupRange& range) { return number - range.first < range.size; });
}

std::string MulticastStreamInfo::getInterfaceNameByIndex(int index, const std::string& vifFile) {
    if (index < 0)
        return {};
    KernelFile file(vifFile);
    std::string line;
    (void)file.readLine(line); // the header
    while (file.readLine(line)) {
        const Row row(line);
        if (row.column(Index) == std::to_string(index))
            return row.column(Name);
    }
    return {};
}

std::string MulticastStreamInfo::getInterfaceNameByIndex(const std::string& index,
                                                         const std::string& vifFile) {
    return getInterfaceNameByIndex(string::toInteger(index), vifFile);
}

void MulticastStreams::doLoad(MulticastStreamInfo::EIpProtocolVersion version) {
    if (version == MulticastStreamInfo::IPv4 || version == MulticastStreamInfo::Both)
        loadCache(ipMrCacheFile, MulticastStreamInfo::IPv4);
    if (version == MulticastStreamInfo::IPv6 || version == MulticastStreamInfo::Both)
        loadCache(ip6MrCacheFile, MulticastStreamInfo::IPv6);
}

void MulticastStreams::loadCache(const char* path, MulticastStreamInfo::EIpProtocolVersion version) {
    KernelFile file(path);
    std::string line;
    (void)file.readLine(line); // the header
    while (file.readLine(line))
        if (!line.empty())
            streams_.emplace_back(line, version);
}

bool MulticastStreams::isIPTVRunning() const {
    return std::any_of(streams_.begin(), streams_.end(),
                       [](const MulticastStreamInfo& stream) { return stream.isIPTV(); });
}

bool isIPTVStreamRunning() {
    MulticastStreams streams;
    streams.doLoad(MulticastStreamInfo::Both);
    return streams.isIPTVRunning();
}

} // namespace orv
