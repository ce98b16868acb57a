#pragma once

#include "support/scriptedclock.h"
#include "tools/horactl/forecast.h"
#include "tools/horactl/question.h"
#include "unit/horactl/weekhouse.h"

#include <ctime>
#include <string>
#include <vector>

// Forecasts for the tests, in few words.
namespace tools::horactl::testing {

constexpr std::time_t noon = 1772452800; // Mon 2026-03-02 12:00:00 UTC
constexpr std::time_t minute = 60;
constexpr std::time_t hour = 60 * minute;

using Lines = std::vector<std::string>;

// A new store in which horad finds nothing to do.
inline Household quietHousehold() {
    Household household = newHousehold();
    set(household, "wexd", {{"Enable", "1"}});
    return household;
}

// The same slot on each day.
inline void addDaily(Household& household, const std::string& table, int id, int activate,
                     const std::string& start, const std::string& stop) {
    velta::ValueList cells;
    for (const std::string day : orv::simulation::weekDays) {
        velta::Value text(velta::Value::Text);
        text.setText(start);
        cells.add("Start" + day, text);
        text.setText(stop);
        cells.add("Stop" + day, text);
    }
    const velta::ValueList plan =
        orv::simulation::with(row(table, id, {{"Activate", std::to_string(activate)}}), cells);
    household.tables[table].push_back(plan);
}

// "+10 WlanTimePlans.1 TimePlanStatus 0 -> 1": the seconds are the clock's, counted from noon.
inline std::string lineOf(std::time_t time, const orv::simulation::Tables::Change& change) {
    const std::string after = time < noon ? "" : "+";
    return after + std::to_string(time - noon) + ' ' + change.table +
           (change.id != 0 ? '.' + std::to_string(change.id) : "") + ' ' + change.column + ' ' +
           change.before.getText() + " -> " + change.after.getText();
}

inline void record(Forecast& forecast, Lines& writes) {
    forecast.onCommit([&writes](std::time_t time, const Forecast::Changes& changes) {
        for (const orv::simulation::Tables::Change& change : changes)
            writes.push_back(lineOf(time, change));
    });
}

// Those of a horad that starts at noon.
inline Lines writesOf(const Household& household, std::int64_t seconds,
                      const Circumstances& circumstances = {}, unsigned repeatDelay = 0) {
    Lines writes;
    Forecast forecast(household, {noon, repeatDelay}, circumstances);
    record(forecast, writes);
    forecast.runUntil(noon + seconds);
    return writes;
}

// Of tables from elsewhere, at noon.
inline Question questionOf(const Household& household) {
    Question question;
    question.household = household;
    question.present = noon;
    return question;
}

} // namespace tools::horactl::testing
