#include "sim/scenario.h"

#include <algorithm>
#include <ctime>
#include <optional>

namespace sim {

std::vector<Scenario> scenarios() {
    std::vector<Scenario> all;
    for (const auto& theme : {clockScenarios(), rebootScenarios(), storeScenarios()})
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

void expectAtMost(const std::string& what, long actual, long most) {
    if (actual > most)
        throw Unexpected(what + " should be at most " + std::to_string(most) + " and are " +
                         std::to_string(actual));
}

void expectNumber(const Household& household, const std::string& table, int id, const std::string& column,
                  int expected) {
    expectEqual(table + (id != 0 ? "." + std::to_string(id) : "") + " " + column,
                household.tables().number(table, column, id), expected);
}

void expectReboots(const Household& household, const std::vector<std::string>& minutes) {
    constexpr std::size_t toTheMinute = 16;
    std::string actual;
    std::string expected;
    for (const std::time_t moment : household.reboots())
        actual += " " + isoTime(moment).substr(0, toTheMinute);
    for (const std::string& moment : minutes)
        expected += " " + moment;
    if (actual != expected)
        throw Unexpected("reboots should be at" + expected + " and are at" + actual);
}

void runUntil(Household& household, const std::string& text) {
    household.runUntil(localTime(text));
}

void settle(Household& household) {
    household.run(10 * second);
}

void rebootDaily(Household& household, const std::string& time) {
    household.change("AutoReboot", 0, "Time", time);
    household.change("AutoReboot", 0, "Enable", 1);
}

void insertFrame(Household& household, int id, const std::string& start, const std::string& end, int mode,
                 int maxRetries) {
    Row frame = newRow("TimeFrame", id);
    set(frame, "WindowMode", mode);
    set(frame, "ServicetableId", id);
    set(frame, "TimeFrameStart", static_cast<int>(localTime(start)));
    set(frame, "TimeFrameEnd", static_cast<int>(localTime(end)));
    set(frame, "MaxRetries", maxRetries);
    household.insert("TimeFrame", frame);
}

void insertFailingService(Household& household, int id) {
    household.insert("FileTransfer", newRow("FileTransfer", id));
    household.onCommit([&household, id](const Tables::Changes& changes) {
        for (const Tables::Change& change : changes)
            if (change.table == "FileTransfer" && change.id == id)
                household.machine().after(1 * second, [&household, id] {
                    household.change("FileTransfer", id, "Result", 1);
                    household.change("FileTransfer", id, "Status", 5);
                });
    });
}

Count::Count(Household& household, const std::string& table, int id, const std::string& column) {
    household.onCommit([=, count = changes_](const Tables::Changes& changes) {
        for (const Tables::Change& change : changes)
            if (change.table == table && change.id == id && change.column == column)
                ++*count;
    });
}

} // namespace sim
