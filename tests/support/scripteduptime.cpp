#include "support/scripteduptime.h"

#include <cerrno>

#include <dlfcn.h>
#include <sys/sysinfo.h>

namespace {

ScriptedUptime* script = nullptr;

} // namespace

extern "C" int sysinfo(struct sysinfo* info) noexcept {
    if (script == nullptr)
        return reinterpret_cast<int (*)(struct sysinfo*)>(dlsym(RTLD_NEXT, "sysinfo"))(info);
    if (script->failing()) {
        errno = EFAULT;
        return -1;
    }
    *info = {};
    info->uptime = static_cast<decltype(info->uptime)>(script->seconds());
    return 0;
}

ScriptedUptime::ScriptedUptime(unsigned seconds) : seconds_(seconds) {
    script = this;
}

ScriptedUptime::~ScriptedUptime() {
    script = nullptr;
}
