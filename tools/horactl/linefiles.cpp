#include "tools/horactl/linefiles.h"

#include "probes/multicaststreams.h"
#include "probes/systemidle.h"
#include "tools/errors.h"

#include <cerrno>
#include <cstring>

#include <sys/mman.h>
#include <unistd.h>

namespace tools::horactl {

namespace {

// As the kernel writes them.
constexpr const char* cacheHeader = "Group    Origin   Iif     Pkts    Bytes    Wrong Oifs\n";
constexpr const char* streamRow = "0A0101E0 0A000001 0         12     3456        0  0:1  \n";

[[noreturn]] void refuse() {
    throw Refused(std::string("no file in memory for the calls and streams: ") + std::strerror(errno));
}

} // namespace

LineFiles::File::File(const char*& probed)
    : descriptor_(memfd_create("horactl", MFD_CLOEXEC)),
      path_("/proc/self/fd/" + std::to_string(descriptor_)),
      probed_(probed),
      kernels_(probed) {
    if (descriptor_ < 0)
        refuse();
    probed_ = path_.c_str();
}

LineFiles::File::~File() {
    probed_ = kernels_;
    close(descriptor_);
}

void LineFiles::File::write(const std::string& content) {
    if (ftruncate(descriptor_, 0) != 0 ||
        pwrite(descriptor_, content.data(), content.size(), 0) != static_cast<ssize_t>(content.size()))
        refuse();
}

LineFiles::LineFiles()
    : calls_(orv::kvenvSipCallFile), streams_(orv::ipMrCacheFile), streams6_(orv::ip6MrCacheFile) {
    setCall(false);
    setStream(false);
    streams6_.write("");
}

LineFiles::~LineFiles() = default;

void LineFiles::setCall(bool active) {
    calls_.write(active ? "1\n" : "0\n");
}

void LineFiles::setStream(bool active) {
    streams_.write(std::string(cacheHeader) + (active ? streamRow : ""));
}

} // namespace tools::horactl
