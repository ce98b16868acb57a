#include "orv/system.h"

#include <sys/sysinfo.h>
#include <unistd.h>

namespace orv {

namespace {

class RealSystem : public System {
public:
    std::time_t time() override { return std::time(nullptr); }

    // std::chrono::system_clock's own now() ends in 2038 where the standard library was built with a time_t
    // of 32 bits.
    std::int64_t now() override {
        timespec moment{};
        (void)clock_gettime(CLOCK_REALTIME, &moment); // can't fail for this clock
        return std::int64_t{moment.tv_sec} * 1'000'000 + moment.tv_nsec / 1000;
    }

    unsigned uptime() override {
        struct sysinfo info {};
        return sysinfo(&info) == 0 ? static_cast<unsigned>(info.uptime) : 0;
    }

    void sleep(unsigned microseconds) override { (void)usleep(microseconds); } // a signal may end it early
};

} // namespace

System& System::real() {
    static RealSystem system;
    return system;
}

} // namespace orv
