#include "sim/household.h"
#include "orv/sysloglevel.h"
#include <chrono>
#include <cstdio>
int main(int argc, char** argv) {
    sim::Household household("Europe/Berlin", 1767222000);
    (void)orv::horad::Logger::instance();
    for (const char* m : {"horad", "timefrm", "timefrmhdl", "deliveries"})
        ORV_Sysloglevel_registerModul(m), ORV_Sysloglevel_changeTracelevel(m, 0);
    for (int i = 1; i <= 10; ++i)
        household.insert(i % 2 ? "WlanTimePlans" : "TimePlans",
                         sim::dailyPlan("TimePlans", i, std::to_string(i) + ":30", std::to_string(i + 10) + ":00"));
    household.change("AutoReboot", 0, "Enable", 1);
    household.change("AutoReboot", 0, "Time", std::string("3:30"));
    const auto begin = std::chrono::steady_clock::now();
    household.run((argc > 1 ? atoi(argv[1]) : 30) * sim::day);
    const double took = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    std::printf("%llu passes %f s %f us/pass %zu reboots digest %llx\n%s", (unsigned long long)household.passes(), took,
                took / double(household.passes()) * 1e6, household.reboots().size(), (unsigned long long)household.journal().digest(), household.journal().text().c_str());
}
