#pragma once

#include <list>
#include <string>

namespace orv {

// The kernel's multicast routing caches, and its tables of the interfaces that their rows name by index.
// Tests set them.
extern const char* ipMrCacheFile;
extern const char* ip6MrCacheFile;
extern const char* ipMrVifFile;
extern const char* ip6MrVifFile;

class InterfaceNames;

// One row of a multicast routing cache: group, origin, index of the input interface, three counters, and a
// pair of index and TTL for each outgoing interface ("1:1").
class MulticastStreamInfo {
public:
    enum EIpProtocolVersion { IPv4 = 0, IPv6 = 1, Both = 2 };

    MulticastStreamInfo(const std::string& line, EIpProtocolVersion version);
    // For one of many rows: looks the interfaces up in names that were read once for all rows.
    MulticastStreamInfo(const std::string& line, EIpProtocolVersion version, InterfaceNames& names);

    // Parses a row. What a short row lacks stays empty. Reads the interface table afresh.
    void doLoad(const std::string& line, EIpProtocolVersion version);
    // Whether the stream is television, which is every group but those of the local network's own protocols.
    bool isIPTV() const;

    // Reads the interface table afresh. Empty where it has no such index, or can't be read.
    static std::string getInterfaceNameByIndex(int index, const std::string& vifFile);
    // An index as text, decimal.
    static std::string getInterfaceNameByIndex(const std::string& index, const std::string& vifFile);

    std::string origin; // as the kernel prints it
    std::string group;  // hexadecimal
    std::string inputInterface;
    std::list<std::string> outputInterfaces; // in text order of their indices
    int loaded = 0;                          // 1 once a row was parsed
    EIpProtocolVersion version = IPv4;
    std::string vifFile;

private:
    void load(const std::string& line, EIpProtocolVersion version, InterfaceNames& names);
};

// The rows of the routing caches.
class MulticastStreams {
public:
    // Adds the rows of one cache, or of both, IPv4 first. A cache that can't be read counts as empty.
    void doLoad(MulticastStreamInfo::EIpProtocolVersion version);
    bool isIPTVRunning() const;

private:
    void loadCache(MulticastStreamInfo::EIpProtocolVersion version);

    std::list<MulticastStreamInfo> streams_;
};

// Whether the kernel routes a television stream now. Reads the caches up to the first such stream.
bool isIPTVStreamRunning();

} // namespace orv
