#include "sim/happenings.h"
#include "sim/zones.h"

// The router itself: its power, its clock, its time zone.
namespace sim {

namespace {

constexpr std::time_t aMinute = 60; // seconds
constexpr std::time_t anHour = 60 * aMinute;

// What a router's clock shows when it boots, which keeps no time while the power is off.
std::optional<std::time_t> clockAtBoot(const Household& household, Random& random) {
    const auto right = static_cast<std::time_t>(household.rightClock() / second);
    switch (random.below(6)) {
    case 0:
        return 0; // 1970
    case 1:
        return right - random.between(1, 120);
    case 2:
        return right - random.between(1, 12) * anHour;
    case 3:
        return right + random.between(-5, 3 * anHour);
    case 4:
        return random.chance(20) ? std::optional<std::time_t>(right + random.between(1, 4000) * 24 * anHour)
                                 : std::nullopt;
    default:
        return std::nullopt;
    }
}

Boot anyBoot(const Household& household, Random& random, Microseconds leastOff, Microseconds mostOff) {
    Boot boot;
    boot.off = random.between(leastOff, mostOff);
    boot.clock = clockAtBoot(household, random);
    boot.setRightAfter =
        random.chance(80) ? random.between(20 * second, 5 * minute) : random.between(5 * minute, 3 * hour);
    return boot;
}

} // namespace

void losePower(Household& household, const std::shared_ptr<Random>& random) {
    household.onReboot(
        [&household, random] { return anyBoot(household, *random, 20 * second, 90 * second); });
    recur(household, random, 10 * hour, 6 * day, [](Household& house, Random& chance) {
        house.cutPower(chance.chance(80) ? anyBoot(house, chance, 5 * second, 5 * minute)
                                         : anyBoot(house, chance, 5 * minute, 10 * hour));
    });
}

void losePowerBeforeReboots(Household& household, const std::shared_ptr<Random>& random) {
    recur(household, random, 12 * hour, 6 * day, [](Household& house, Random& chance) {
        const Microseconds runtime = house.tables().number("AutoReboot", "MinimumRuntime") * second;
        const Microseconds boot = untilReboot(house) - runtime + chance.between(-10 * minute, 10 * minute);
        constexpr Microseconds off = 30 * second;
        if (boot > off)
            house.machine().after(boot - off, [&house] { house.cutPower(Boot{off, {}, 0}); });
    });
}

// In the middle of what horad does with the store.
void losePowerAtWork(Household& household, const std::shared_ptr<Random>& random) {
    recur(household, random, 1 * day, 8 * day, [random](Household& house, Random& chance) {
        auto left = std::make_shared<std::int64_t>(chance.between(1, 60));
        const int number = house.beginAmbush([&house, random, left](Tables::Operation, const std::string&) {
            if (--*left == 0)
                house.cutPower(anyBoot(house, *random, 5 * second, 60 * second));
            return velta::protocol::EResultCode();
        });
        house.machine().after(1 * day, [&house, number] { house.endAmbush(number); });
    });
}

void stepClock(Household& household, const std::shared_ptr<Random>& random) {
    recur(household, random, 8 * hour, 5 * day, [](Household& house, Random& chance) {
        const Microseconds now = house.machine().now();
        switch (chance.below(3)) {
        case 0: // as a time server sets it
            house.setClock(now + chance.between(-5 * second, 5 * second));
            break;
        case 1:
            house.setClock(now + chance.between(-90 * second, 90 * second));
            break;
        default:
            house.setClock(now + chance.between(-30 * hour, 30 * hour));
        }
        house.machine().after(chance.between(10 * second, 30 * minute), [&house] { house.setClockRight(); });
    });
}

void moveHouse(Household& household, const std::shared_ptr<Random>& random) {
    recur(household, random, 2 * day, 40 * day, [](Household& house, Random& chance) {
        const std::string before = getenv("TZ");
        house.setZone(chance.among(zones()).name, chance.chance(50));
        if (chance.chance(70))
            house.machine().after(chance.between(2 * minute, 12 * hour),
                                  [&house, before] { house.setZone(before); });
    });
}

} // namespace sim
