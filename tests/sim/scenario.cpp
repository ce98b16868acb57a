#include "sim/scenario.h"

#include <algorithm>
#include <ctime>
#include <optional>

namespace sim {

std::vector<Scenario> scenarios() {
    std::vector<Scenario> all;
    for (const auto& theme : {clockScenarios(), rebootScenarios(), planScenarios(), storeScenarios()})
        all.insert(all.end(), theme.begin(), theme.end());
    return all;
}

std::time_t localTime(const std::string& text) {
    std::tm local{};
    if (strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &local) == nullptr)
        throw std::invalid_argument("\"" + text + "\" is no local time");
    std::optional<std::time_t> first;
    for (const int summerTime : {0, 1, -1}) {
        std::tm candidate = local;
        candidate.tm_isdst = summerTime;
        const std::time_t moment = std::mktime(&candidate);
        if (candidate.tm_hour == local.tm_hour && candidate.tm_min == local.tm_min)
            first = std::min(first.value_or(moment), moment);
    }
    if (!first)
        throw std::invalid_argument("there is no \"" + text + "\" in this zone");
    return *first;
}

void expectEqual(const std::string& what, long actual, long expected) {
    if (actual != expected)
        throw Unexpected(what + " should be " + std::to_string(expected) + " and is " +
                         std::to_string(actual));
}

void expectNumber(const Household& household, const std::string& table, int id, const std::string& column,
                  int expected) {
    expectEqual(table + (id != 0 ? "." + std::to_string(id) : "") + " " + column,
                household.tables().number(table, column, id), expected);
}

} // namespace sim
