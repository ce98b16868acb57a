#include "tools/horactl/simulate.h"

#include "timeplan/isotime.h"
#include "tools/cells.h"
#include "tools/horactl/localtime.h"
#include "tools/horactl/loglines.h"
#include "tools/horactl/wlanstate.h"
#include "tools/output.h"
#include "tools/text.h"

#include <iostream>
#include <nlohmann/json.hpp>
#include <string>

#include <unistd.h>

namespace tools::horactl {

using nlohmann::ordered_json;
using orv::simulation::Tables;

namespace {

constexpr std::size_t part = std::size_t{64} * 1024; // bytes that are printed together

bool hasManyRows(const Tables& tables, const std::string& table) {
    const Tables::Rows& rows = tables.rows(table);
    return !rows.empty() && rows.front().hasValue("Id");
}

// Keeps what is printed together, and tells a terminal how far it is.
class Report {
public:
    Report(const Question& question, std::time_t from, std::int64_t seconds)
        : json_(question.json), from_(from), seconds_(seconds), shows_(isatty(STDERR_FILENO) == 1) {}
    ~Report() {
        if (shown_ != 0)
            std::cerr << "\r\x1b[K" << std::flush;
    }
    Report(const Report&) = delete;
    Report& operator=(const Report&) = delete;

    void write(std::time_t time, const Tables& tables, const Tables::Change& change) {
        put(json_ ? serialise(asJson(time, tables, change)) : asText(time, tables, change));
    }

    void log(std::time_t time, orv::horad::LogLevel level, const std::string& module,
             const std::string& text) {
        put(json_ ? serialise(ordered_json{{"time", orv::horad::isoTime(time)},
                                           {"level", nameOf(level)},
                                           {"module", module},
                                           {"log", text}})
                  : logLine(time, level, module, text));
    }

    void put(const std::string& line) {
        text_ += line + '\n';
        if (text_.size() >= part)
            flush();
    }

    void flush() {
        print(text_);
        text_.clear();
    }

    void progress(std::time_t now) {
        constexpr std::time_t often = 24 * 3600;
        if (!shows_ || now < shown_ + often)
            return;
        shown_ = now;
        std::cerr << "\r" << (now - from_) * 100 / seconds_ << " %" << std::flush;
    }

private:
    static ordered_json asJson(std::time_t time, const Tables& tables, const Tables::Change& change) {
        return {{"time", orv::horad::isoTime(time)},
                {"table", change.table},
                {"row", hasManyRows(tables, change.table) ? ordered_json(change.id) : ordered_json()},
                {"column", change.column},
                {"old", change.before.getText()},
                {"new", change.after.getText()}};
    }

    static std::string asText(std::time_t time, const Tables& tables, const Tables::Change& change) {
        const std::string row =
            hasManyRows(tables, change.table) ? rowName(change.table, change.id) : change.table;
        return timeForPerson(time) + "  " + printable(row + " " + change.column) + ": " +
               asWord(change.before) + " -> " + asWord(change.after);
    }

    bool json_;
    std::time_t from_;
    std::int64_t seconds_;
    bool shows_;
    std::time_t shown_ = 0;
    std::string text_;
};

} // namespace

void simulateCommand(const Question& question, std::time_t from, std::int64_t seconds,
                     const Circumstances& circumstances) {
    Report report(question, from, seconds);
    Forecast forecast(question.household, {from, question.repeatDelay, question.verbose}, circumstances);
    forecast.onCommit([&](std::time_t time, const Forecast::Changes& changes) {
        for (const Tables::Change& change : changes)
            report.write(time, forecast.tables(), change);
    });
    if (question.verbose)
        forecast.onLine([&](std::time_t time, orv::horad::LogLevel level, const std::string& module,
                            const std::string& text) { report.log(time, level, module, text); });
    forecast.runUntil(from + seconds, [&] {
        report.progress(forecast.now());
        return true;
    });
    report.flush();
}

} // namespace tools::horactl
