#include "horad.h"

#include "handlers/dbm.h"

#include <algorithm>

namespace orv::horad {

using cfg::common::IConfigClient;

namespace {

constexpr unsigned eventWait = 2000; // milliseconds, the length of an idle iteration
constexpr std::uint32_t iterationsPerRebootCheck = 25;
constexpr unsigned rebootSlot = 60; // seconds, see RebootHandler
static_assert(iterationsPerRebootCheck * eventWait < rebootSlot * 1000, "a reboot's slot meets a check");

} // namespace

Horad::Horad(std::list<std::string>& tables, unsigned repeatDelay, bool verbose,
             const Register& registerHandler, System& system)
    : timePlans_(tables, system),
      timeframes_(repeatDelay, verbose, system),
      reboot_(system),
      followsWlan_(std::find(tables.begin(), tables.end(), dbm::WlanTimePlans) != tables.end()) {
    cfg::IConfigHandler* const inOrder[] = {&wlan_, &timePlans_, &timeframes_, &reboot_};
    for (cfg::IConfigHandler* const handler : inOrder)
        registerHandler(handler);
}

void Horad::iterate(StoreLink& store) {
    store.wait(eventWait);
    store.deliver();
    store.pass([this](IConfigClient& client) { timePlans_.checkTimePlans(client); });
    store.pass([this](IConfigClient& client) { timeframes_.checkTimeframes(client); });
    if (++iteration_ % iterationsPerRebootCheck == 0)
        reboot_.checkReboot(store.client());
}

} // namespace orv::horad
