#include "support/scriptedsleep.h"

#include <dlfcn.h>

namespace {

ScriptedSleep* script = nullptr;

} // namespace

extern "C" int usleep(useconds_t microseconds) {
    if (script == nullptr)
        return reinterpret_cast<int (*)(useconds_t)>(dlsym(RTLD_NEXT, "usleep"))(microseconds);
    script->sleeps.push_back(microseconds);
    if (script->onSleep)
        script->onSleep();
    return 0;
}

ScriptedSleep::ScriptedSleep() {
    script = this;
}

ScriptedSleep::~ScriptedSleep() {
    script = nullptr;
}
