#include "probes/systemidle.h"

#include "probes/kernelfile.h"
#include "probes/multicaststreams.h"

#include <string>

namespace orv {

using cfg::common::IConfigClient;

const char* kvenvSipCallFile = "/proc/kelvaro/ksn/udp/instance_count";

namespace {

constexpr unsigned quietBeforeDownload = 300; // seconds
constexpr std::size_t longestNumber = 63;     // bytes

} // namespace

bool isSystemIdle(IConfigClient& client, SystemIdleType type) {
    switch (type) {
    case SystemIdleType::Reboot:
        return !isSipCallActive(client);
    case SystemIdleType::FirmwareDownload:
        return isFirmwareDownloadSIPCallIdletimePassed(client, quietBeforeDownload) && !isIPTVStreamRunning();
    }
    return true;
}

bool isSipCallActive(IConfigClient&) {
    KernelFile file(kvenvSipCallFile);
    if (!file.isOpen())
        return false;
    std::string line;
    (void)file.readLine(line, longestNumber); // a file without a line reads as an empty line
    return std::stol(line) != 0;
}

bool isFirmwareDownloadSIPCallIdletimePassed(IConfigClient& client, unsigned) {
    return !isSipCallActive(client);
}

} // namespace orv
