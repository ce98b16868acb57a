#include "sim/zones.h"

namespace sim {

namespace {

constexpr std::time_t aDay = 86400;
constexpr std::time_t apiaSkipsADay = 1325239200; // 2011-12-30 is missing

long offsetAt(std::time_t moment) {
    std::tm local{};
    return localtime_r(&moment, &local) != nullptr ? local.tm_gmtoff : 0;
}

} // namespace

const std::vector<Zone>& zones() {
    static const std::vector<Zone> all = {
        {"Europe/Berlin", 0},
        {"Europe/Dublin", 0}, // winter time is the exception there
        {"Europe/London", 0},
        {"Europe/Istanbul", 0},
        {"Atlantic/Azores", 0},
        {"Africa/Casablanca", 0}, // the offset changes for Ramadan
        {"Africa/Lagos", 0},
        {"America/New_York", 0},
        {"America/Los_Angeles", 0},
        {"America/Sao_Paulo", 0},
        {"America/St_Johns", 0}, // -3:30
        {"America/Havana", 0},   // changes at midnight
        {"America/Scoresbysund", 0},
        {"Asia/Kolkata", 0},   // +5:30
        {"Asia/Kathmandu", 0}, // +5:45
        {"Asia/Tehran", 0},    // +3:30
        {"Asia/Beirut", 0},    // changes at midnight
        {"Asia/Tokyo", 0},
        {"Australia/Adelaide", 0},  // +9:30
        {"Australia/Eucla", 0},     // +8:45
        {"Australia/Lord_Howe", 0}, // changes by half an hour
        {"Pacific/Chatham", 0},     // +12:45
        {"Pacific/Apia", apiaSkipsADay},
        {"Pacific/Kiritimati", 0}, // +14
        {"Pacific/Pago_Pago", 0},  // -11
        {"Antarctica/Troll", 0},   // changes by two hours
        {"UTC", 0},
    };
    return all;
}

std::time_t beginningBeforeChange(std::time_t earliest, std::time_t before) {
    constexpr int daysToLook = 400;
    for (int day = 0; day < daysToLook; ++day) {
        const std::time_t moment = earliest + before + day * aDay;
        if (offsetAt(moment) != offsetAt(moment + aDay))
            return moment - before;
    }
    return earliest;
}

} // namespace sim
