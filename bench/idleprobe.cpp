// bench_idleprobe ROWS    times the question whether the system is idle, with that many rows in the cache of
//                         IPv4 routes, beside a plain reading of the files that it needs. Files like the
//                         kernel's are written into the current folder.

#include "bench/calls.h"
#include "bench/inprocessstore.h"
#include "probes/multicaststreams.h"
#include "probes/systemidle.h"

#include <cstdarg>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr int interfaces = 8;
constexpr int largestCache = 1000; // rows

void writeFile(const char* path, const std::string& content) {
    std::ofstream(path) << content;
}

std::string printed(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string printed(const char* format, ...) {
    char line[128];
    va_list arguments;
    va_start(arguments, format);
    (void)std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    return line;
}

// Each row has two outgoing interfaces.
std::string cacheOf(int rows) {
    std::string content = "Group    Origin   Iif     Pkts    Bytes    Wrong Oifs\n";
    for (int row = 0; row < rows; ++row)
        content += printed("E8%06X C0A80001 %-3d %8d %8d %8d %2d:%-3d %2d:%-3d\n", static_cast<unsigned>(row),
                           row % interfaces, row * 10, row * 13280, 0, (row + 1) % interfaces, 1,
                           (row + 2) % interfaces, 1);
    return content;
}

std::string interfaceTable() {
    std::string content = "Interface      BytesIn  PktsIn  BytesOut PktsOut Flags Local    Remote\n";
    for (int index = 0; index < interfaces; ++index)
        content += printed("%2d %-10s %8d %7d  %8d %7d %05X %08X %08X\n", index,
                           printed("lan%d", index).c_str(), 132800, 100, 0, 0, 0U, 0xC0A80001U, 0U);
    return content;
}

// The files that an answer needs, in the current folder.
std::vector<const char*> writeFiles(int rows) {
    orv::kvenvSipCallFile = "instance_count";
    orv::ipMrCacheFile = "ip_mr_cache";
    orv::ip6MrCacheFile = "ip6_mr_cache";
    orv::ipMrVifFile = "ip_mr_vif";
    orv::ip6MrVifFile = "ip6_mr_vif";
    writeFile(orv::kvenvSipCallFile, "0\n");
    writeFile(orv::ipMrCacheFile, cacheOf(rows));
    writeFile(orv::ip6MrCacheFile, cacheOf(0));
    writeFile(orv::ipMrVifFile, interfaceTable());
    std::vector<const char*> needed = {orv::kvenvSipCallFile, orv::ipMrCacheFile, orv::ip6MrCacheFile};
    if (rows > 0)
        needed.push_back(orv::ipMrVifFile);
    return needed;
}

void readPlainly(const char* path) {
    char content[4096];
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    while (read(file, content, sizeof content) > 0) {
    }
    (void)close(file);
}

} // namespace

int main(int argc, char* argv[]) {
    const int rows = argc == 2 ? std::atoi(argv[1]) : -1;
    if (rows < 0 || rows > largestCache) {
        std::fprintf(stderr, "Usage: bench_idleprobe ROWS, up to %d\n", largestCache);
        return EXIT_FAILURE;
    }
    const std::vector<const char*> needed = writeFiles(rows);
    const std::string figure = "idle probe with " + std::to_string(rows) + " streams";
    bench::InProcessStore store;
    const bool expected = rows == 0; // each of the streams is television
    bool asExpected = true;
    bench::timeCalls(figure, "horad", [&] {
        asExpected =
            orv::isSystemIdle(store, orv::SystemIdleType::FirmwareDownload) == expected && asExpected;
    });
    bench::timeCalls(figure, "floor", [&] {
        for (const char* path : needed)
            readPlainly(path);
    });
    if (!asExpected)
        std::fputs("bench_idleprobe: the answers were wrong\n", stderr);
    return asExpected ? EXIT_SUCCESS : EXIT_FAILURE;
}
