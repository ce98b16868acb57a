#include "tools/horactl/findings.h"

#include "tools/horactl/events.h"
#include "tools/horactl/localtime.h"
#include "velta/text.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

namespace tools::horactl {

using orv::horad::TimePlanTime;
using velta::ValueList;

namespace {

bool isShownByClocks(const TimePlanTime& time) {
    const auto within = [](int number, int end) { return number >= 0 && number < end; };
    return within(time.hour(), 24) && within(time.minute(), 60) && within(time.second(), 60);
}

// The numbers in a text, whatever stands between them: "7.30" has two.
std::vector<std::string> numbersIn(std::string_view text) {
    std::vector<std::string> numbers;
    bool inside = false;
    for (const char c : text) {
        const bool digit = c >= '0' && c <= '9';
        if (digit && !inside)
            numbers.emplace_back();
        if (digit)
            numbers.back() += c;
        inside = digit;
    }
    return numbers;
}

// "0330" as "03" and "30".
void splitInPairs(std::vector<std::string>& numbers) {
    if (numbers.size() != 1 || numbers[0].size() < 3 || numbers[0].size() > 6)
        return;
    std::string digits = numbers[0];
    numbers.clear();
    if (digits.size() % 2 != 0)
        digits.insert(digits.begin(), '0');
    for (std::size_t begin = 0; begin < digits.size(); begin += 2)
        numbers.push_back(digits.substr(begin, 2));
}

// The time that somebody wrote in another way; empty where it can't be told.
std::string likelyTime(const std::string& text) {
    std::vector<std::string> numbers = numbersIn(text);
    splitInPairs(numbers);
    if (numbers.size() == 1)
        numbers.emplace_back("00");
    std::string time;
    for (std::string& number : numbers) {
        if (number.size() < 2)
            number.insert(0, "0");
        time += (time.empty() ? "" : ":") + number;
    }
    return velta::isTimeOfDay(time) ? time : std::string();
}

} // namespace

Inquiry::Inquiry(const Household& checked, const CheckInput& about)
    : household(checked), input(about), tables(checked.inMemory()) {}

std::string valueOf(const ValueList& row, const char* column) {
    const velta::Value& value = row.getValue(column);
    return value.type() == velta::Value::Counter
               ? std::to_string(static_cast<std::uint32_t>(value.getInteger()))
               : value.getText();
}

int numberOf(const ValueList& row, const char* column) {
    return row.getValue(column).getInteger();
}

std::vector<std::string> planTablesOf(const Household& household) {
    std::vector<std::string> tables;
    for (const std::string& table : household.planTables)
        if (std::find(tables.begin(), tables.end(), table) == tables.end())
            tables.push_back(table);
    return tables;
}

std::int64_t secondOfDay(const TimePlanTime& time) {
    return (std::int64_t{time.hour()} * 60 + time.minute()) * 60 + time.second();
}

std::string clockText(const TimePlanTime& time) {
    char text[48];
    std::snprintf(text, sizeof text, "%02d:%02d:%02d", time.hour(), time.minute(), time.second());
    return text;
}

const char* nameOfDay(std::size_t day) {
    constexpr const char* names[] = {"Monday", "Tuesday",  "Wednesday", "Thursday",
                                     "Friday", "Saturday", "Sunday"};
    return names[day % std::size(names)];
}

std::optional<Finding> findNoTime(const std::string& row, const ValueList& cells, const char* column) {
    const std::string text = valueOf(cells, column);
    if (velta::isTimeOfDay(text))
        return std::nullopt;
    const TimePlanTime read(text);
    std::string meaning = "this is no time of day; it is read as " + clockText(read);
    if (!isShownByClocks(read))
        meaning += ", which no clock shows";
    const std::string likely = likelyTime(text);
    return Finding{row, column, text, meaning,
                   likely.empty() ? "a time from 00:00:00 to 24:00:00, or an empty text for none" : likely};
}

std::int64_t shownAt(std::time_t moment) {
    const std::optional<LocalTime> local = localTimeOf(moment);
    return local ? secondsAsInUtc(*local) : std::int64_t{moment};
}

std::time_t quietMidnight(std::time_t from, int days) {
    constexpr int daysToLook = 366;
    for (int day = 0; day < daysToLook; ++day) {
        const std::time_t within = from + day * secondsOfDay;
        const std::time_t midnight = within + (secondsOfDay - shownAt(within) % secondsOfDay) % secondsOfDay;
        if (clockChanges(midnight - secondsOfDay, midnight + days * secondsOfDay).empty())
            return midnight;
    }
    return from;
}

} // namespace tools::horactl
