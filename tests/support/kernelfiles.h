#pragma once

#include "probes/multicaststreams.h"
#include "probes/systemidle.h"
#include "support/temporarydirectory.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include <sys/inotify.h>
#include <unistd.h>

// The headers and the rows of the kernel's files, exact to the last blank.
constexpr char ipCacheHeader[] = "Group    Origin   Iif     Pkts    Bytes    Wrong Oifs\n";
constexpr char ip6CacheHeader[] = "Group                            Origin                           "
                                  "Iif      Pkts  Bytes     Wrong  Oifs\n";
constexpr char ipVifHeader[] = "Interface      BytesIn  PktsIn  BytesOut PktsOut Flags Local    Remote\n";
constexpr char ip6VifHeader[] = "Interface      BytesIn  PktsIn  BytesOut PktsOut Flags\n";

// A row's text for that many outgoing interfaces, from index 0 on, each with a TTL of 1.
inline std::string outputs(int count) {
    std::string text;
    for (int index = 0; index < count; ++index)
        text += (index < 10 ? "  " : " ") + std::to_string(index) + ":1  ";
    return text;
}

inline std::string ipRow(const std::string& group, const std::string& outputInterfaces = outputs(1)) {
    return group + " 0A000001 0         12     3456        0" + outputInterfaces;
}

inline std::string ip6Row(const std::string& outputInterfaces = outputs(1)) {
    return "ff3e:0000:0000:0000:0000:0000:ab00:cd22 2aaa:0bbb:0000:0000:0000:0000:0000:eee9 1  "
           "       12     3456        0" +
           outputInterfaces;
}

// Interfaces from index 0 on, called "eth0" and so on where `name` is "eth".
inline std::string vifTable(const std::string& header, const std::string& name, int count) {
    std::string text = header;
    for (int index = 0; index < count; ++index)
        text += (index < 10 ? " " : "") + std::to_string(index) + " " + name + std::to_string(index) +
                "           0       0         0       0 00000 0A000001 00000000\n";
    return text;
}

// Lets the probes read a file of the test's own instead of the kernel's, as long as this lives. The file is
// missing at first.
class ReplacedFile {
public:
    ReplacedFile(const std::filesystem::path& path, const char*& probed)
        : path_(path.string()), probed_(probed), kernels_(probed) {
        probed_ = path_.c_str();
    }
    ~ReplacedFile() { probed_ = kernels_; }
    ReplacedFile(const ReplacedFile&) = delete;
    ReplacedFile& operator=(const ReplacedFile&) = delete;

    const std::string& path() const { return path_; }
    void write(const std::string& content) const { std::ofstream(path_, std::ios::binary) << content; }
    void makeDirectory() const { std::filesystem::create_directory(path_); }

private:
    std::string path_;
    const char*& probed_;
    const char* kernels_;
};

// All files that the probes read. As long as none is written, there is no call and no stream.
struct KernelFiles {
    void setCalls(const std::string& firstLine) const { sipCalls.write(firstLine + "\n"); }
    void setStream(bool running) const {
        ipCache.write(ipCacheHeader + (running ? ipRow("0A0101E0") + "\n" : ""));
    }
    void setQuiet() const {
        setCalls("0");
        setStream(false);
    }

    TemporaryDirectory directory;
    ReplacedFile sipCalls{directory.path() / "instance_count", orv::kvenvSipCallFile};
    ReplacedFile ipCache{directory.path() / "ip_mr_cache", orv::ipMrCacheFile};
    ReplacedFile ip6Cache{directory.path() / "ip6_mr_cache", orv::ip6MrCacheFile};
    ReplacedFile ipVif{directory.path() / "ip_mr_vif", orv::ipMrVifFile};
    ReplacedFile ip6Vif{directory.path() / "ip6_mr_vif", orv::ip6MrVifFile};
};

// Sees which files of a directory are opened while it lives.
class OpenedFiles {
public:
    explicit OpenedFiles(const std::filesystem::path& directory) : events_(inotify_init1(IN_NONBLOCK)) {
        // The kernel merges equal events in a row. Watching closes as well keeps two openings of a file
        // apart.
        if (inotify_add_watch(events_, directory.c_str(), IN_OPEN | IN_CLOSE) < 0)
            std::abort();
    }
    ~OpenedFiles() { close(events_); }
    OpenedFiles(const OpenedFiles&) = delete;
    OpenedFiles& operator=(const OpenedFiles&) = delete;

    // The names of the files opened since the last call, each as often as it was opened.
    std::multiset<std::string> openings() const {
        std::multiset<std::string> openings;
        char events[8192];
        for (ssize_t size = 0; (size = read(events_, events, sizeof events)) > 0;)
            for (ssize_t at = 0; at < size;) {
                inotify_event event{};
                std::memcpy(&event, events + at, sizeof event);
                if ((event.mask & IN_OPEN) != 0)
                    openings.insert(events + at + sizeof event);
                at += static_cast<ssize_t>(sizeof event + event.len);
            }
        return openings;
    }
    std::set<std::string> names() const {
        const std::multiset<std::string> all = openings();
        return {all.begin(), all.end()};
    }

private:
    int events_;
};
