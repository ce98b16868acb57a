#pragma once

namespace orv {

namespace cfg::common {
class IConfigClient;
}

// What the system has to be idle for.
enum class SystemIdleType {
    Reboot = 0,           // no SIP call
    FirmwareDownload = 1, // no SIP call and no IPTV stream
};

// The kernel's file whose first line is the number of SIP calls. Tests set it.
extern const char* kvenvSipCallFile;

// Each call reads the kernel's files afresh. They throw std::invalid_argument or std::out_of_range where the
// number of calls can't be read. The client is not used.

// Any other type is always idle.
bool isSystemIdle(cfg::common::IConfigClient& client, SystemIdleType type);
// False where the file can't be opened.
bool isSipCallActive(cfg::common::IConfigClient& client);
// Whether no call is active now. How long that has been so does not count: `seconds` is not used. C16: sic
bool isFirmwareDownloadSIPCallIdletimePassed(cfg::common::IConfigClient& client, unsigned seconds);

} // namespace orv
