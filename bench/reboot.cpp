// bench_reboot    times the reboot pass: on an ordinary day, and in its slot, refused by the router's uptime.
//                 The floor asks the same of the system and decides nothing. A file like the kernel's is
//                 written into the current folder.

#include "bench/calls.h"
#include "bench/inprocessstore.h"
#include "handlers/dbm.h"
#include "handlers/reboothandler.h"
#include "probes/systemidle.h"

#include <cstdlib>
#include <ctime>
#include <fstream>

#include <fcntl.h>
#include <sys/sysinfo.h>
#include <unistd.h>

namespace {

namespace dbm = orv::horad::dbm;
using velta::Value;

// Auto reboot every day at one time.
class RebootStore : public bench::InProcessStore {
public:
    explicit RebootStore(const std::string& time) : time_(time) {}

    EResultCode selectRow(const std::string&, unsigned, velta::ValueList& values,
                          const velta::NameList&) override {
        values.clear();
        values.add(dbm::AutoReboot_Enable, bench::number(1));
        values.add(dbm::AutoReboot_WeekDay, bench::number(0, Value::Integer));
        values.add(dbm::AutoReboot_Time, bench::text(time_));
        values.add(dbm::AutoReboot_MinimumRuntime, bench::number(-1, Value::Integer)); // 136 years
        return {};
    }

private:
    std::string time_;
};

std::string timeOfDay(std::time_t moment) {
    char text[16];
    std::tm local{};
    (void)std::strftime(text, sizeof text, "%T", localtime_r(&moment, &local));
    return text;
}

void readClock() {
    char text[64];
    timespec now{};
    std::tm local{};
    (void)clock_gettime(CLOCK_REALTIME, &now);
    (void)std::strftime(text, sizeof text, "%FT%T%z", localtime_r(&now.tv_sec, &local));
}

void readCallsAndUptime() {
    char text[64];
    const int file = open(orv::kvenvSipCallFile, O_RDONLY | O_CLOEXEC);
    (void)!read(file, text, sizeof text);
    (void)close(file);
    struct sysinfo info {};
    (void)sysinfo(&info);
}

// False where a pass did write.
bool timePass(const std::string& figure, const std::string& slot) {
    RebootStore store(slot);
    orv::horad::RebootHandler handler;
    (void)handler.configChanged(store, dbm::AutoReboot);
    bench::timeCalls(figure, "horad", [&] { handler.checkReboot(store); });
    return store.transactions() == 0;
}

} // namespace

int main() {
    constexpr int halfADay = 12 * 3600; // seconds
    orv::kvenvSipCallFile = "instance_count";
    std::ofstream(orv::kvenvSipCallFile) << "0\n";
    const std::time_t now = std::time(nullptr);

    const bool ordinaryDay = timePass("reboot pass outside its slot", timeOfDay(now + halfADay));
    bench::timeCalls("reboot pass outside its slot", "floor", readClock);
    const bool inSlot = timePass("reboot pass in its slot, refused", timeOfDay(now - 1));
    bench::timeCalls("reboot pass in its slot, refused", "floor", [] {
        readClock();
        readCallsAndUptime();
    });
    if (ordinaryDay && inSlot)
        return EXIT_SUCCESS;
    std::fputs("bench_reboot: a pass that was measured triggered\n", stderr);
    return EXIT_FAILURE;
}
