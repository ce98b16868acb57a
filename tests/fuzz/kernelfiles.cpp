// The probes read files with any content.
#include "fuzz/input.h"
#include "probes/multicaststreams.h"
#include "probes/systemidle.h"
#include "support/fakestore.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

namespace {

using fuzz::require;
using orv::MulticastStreamInfo;
using Version = MulticastStreamInfo::EIpProtocolVersion;

// A file without a place in the file system.
class MemoryFile {
public:
    MemoryFile() : descriptor_(memfd_create("kernelfile", MFD_CLOEXEC)) {
        path_ = "/proc/self/fd/" + std::to_string(descriptor_);
    }

    const char* path() const { return path_.c_str(); }
    void write(const std::string& content) const {
        const auto size = static_cast<ssize_t>(content.size());
        require(ftruncate(descriptor_, 0) == 0 &&
                    pwrite(descriptor_, content.data(), content.size(), 0) == size,
                "a file can be written");
    }

private:
    int descriptor_; // stays open as long as the process
    std::string path_;
};

// The part of each line that the probes read.
std::vector<std::string> linesOf(const std::string& text, std::size_t longest) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.emplace_back(line.substr(0, longest).c_str()); // up to a zero byte
    return lines;
}

std::vector<std::string> rowsOf(const std::string& text) {
    std::vector<std::string> rows = linesOf(text, 255);
    if (!rows.empty())
        rows.erase(rows.begin());
    rows.erase(std::remove(rows.begin(), rows.end(), std::string()), rows.end());
    return rows;
}

std::vector<std::string> columnsOf(const std::string& row) {
    const char* const white = " \t\n\v\f\r";
    const std::size_t begin = std::min(row.find_first_not_of(white), row.size());
    const std::string text = row.substr(begin, row.find_last_not_of(white) + 1 - begin);
    std::vector<std::string> columns(1);
    for (const char character : text)
        if (character != ' ' && character != '\t')
            columns.back() += character;
        else if (!columns.back().empty())
            columns.emplace_back();
    return columns;
}

void checkCalls(const std::string& content) {
    enum class Outcome { Calls, NoCalls, NoNumber, OutOfRange };
    static const MemoryFile file;
    static fakes::FakeStore client;
    file.write(content);
    orv::kvenvSipCallFile = file.path();

    const std::vector<std::string> lines = linesOf(content, 63);
    const std::string line = lines.empty() ? std::string() : lines.front();
    char* end = nullptr;
    errno = 0;
    const long number = std::strtol(line.c_str(), &end, 10);
    const Outcome expected = end == line.c_str() ? Outcome::NoNumber
                             : errno == ERANGE   ? Outcome::OutOfRange
                             : number != 0       ? Outcome::Calls
                                                 : Outcome::NoCalls;
    Outcome outcome = Outcome::NoCalls;
    try {
        outcome = orv::isSipCallActive(client) ? Outcome::Calls : Outcome::NoCalls;
    } catch (const std::invalid_argument&) {
        outcome = Outcome::NoNumber;
    } catch (const std::out_of_range&) {
        outcome = Outcome::OutOfRange;
    }
    require(outcome == expected, "calls are what the first number says");
}

// Reads the group as a machine with 32 bits does.
bool isLocalGroup(const std::string& group) {
    const long long number =
        std::clamp<long long>(std::strtoll(group.c_str(), nullptr, 16), INT32_MIN, INT32_MAX);
    const auto address = static_cast<std::uint32_t>(number);
    return address >> 8 == 0xE00000 || address >> 24 == 0xEF;
}

std::string nameIn(const std::vector<std::string>& interfaces, int index) {
    for (const std::string& row : interfaces) {
        const std::vector<std::string> columns = columnsOf(row);
        if (columns.front() == std::to_string(index))
            return columns.size() > 1 ? columns[1] : std::string();
    }
    return {};
}

void checkRow(const std::string& row, Version version) {
    const std::vector<std::string> columns = columnsOf(row);
    MulticastStreamInfo info(row, version);
    require(info.loaded == 1 && info.version == version, "a row is loaded");
    require(info.group == columns[0], "the group is the first column");
    require(info.origin == (columns.size() > 1 ? columns[1] : ""), "the origin is the second column");
    require(columns.size() > 2 || info.inputInterface.empty(), "without an index there is no interface");
    require((columns.size() > 6) == !info.outputInterfaces.empty(), "outputs begin at the seventh column");
    const bool local = version == MulticastStreamInfo::IPv4 && isLocalGroup(info.group);
    require(info.isIPTV() == !local, "a row is television or of the local network");
    const std::list<std::string> outputs = info.outputInterfaces;
    info.doLoad(row, version);
    require(info.outputInterfaces == outputs, "a row says the same again");
}

// A cache, and behind the first zero byte the table of its interfaces.
void checkStreams(const std::string& content, Version version) {
    static const MemoryFile cache;
    static const MemoryFile interfaces;
    static const MemoryFile empty;
    const std::size_t middle = std::min(content.find('\0'), content.size());
    const std::string cacheText = content.substr(0, middle);
    const std::string interfaceText = content.substr(std::min(middle + 1, content.size()));
    cache.write(cacheText);
    interfaces.write(interfaceText);
    const bool inIp = version == MulticastStreamInfo::IPv4;
    orv::ipMrCacheFile = inIp ? cache.path() : empty.path();
    orv::ip6MrCacheFile = inIp ? empty.path() : cache.path();
    orv::ipMrVifFile = inIp ? interfaces.path() : empty.path();
    orv::ip6MrVifFile = inIp ? empty.path() : interfaces.path();

    const std::vector<std::string> rows = rowsOf(cacheText);
    const bool running = std::any_of(rows.begin(), rows.end(), [inIp](const std::string& row) {
        return !inIp || !isLocalGroup(columnsOf(row).front());
    });
    require(orv::isIPTVStreamRunning() == running, "a stream runs where a row is television");
    for (const std::string& row : rows)
        checkRow(row, version);
    require(MulticastStreamInfo::getInterfaceNameByIndex(-1, interfaces.path()).empty(),
            "a negative index has no interface");
    for (const int index : {0, 1, 2, 10, 31})
        require(MulticastStreamInfo::getInterfaceNameByIndex(index, interfaces.path()) ==
                    nameIn(rowsOf(interfaceText), index),
                "an interface has the name of its first row");
}

} // namespace

// The first byte says of which file the rest is the content.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const unsigned which = input.byte() % 3;
    const std::string content = input.rest();
    if (which == 0)
        checkCalls(content);
    else
        checkStreams(content, which == 1 ? MulticastStreamInfo::IPv4 : MulticastStreamInfo::IPv6);
    return 0;
}
