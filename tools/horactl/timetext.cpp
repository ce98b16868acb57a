#include "tools/horactl/timetext.h"

#include "timeplan/isotime.h"
#include "tools/errors.h"
#include "tools/horactl/localtime.h"
#include "tools/horactl/scanner.h"
#include "tools/text.h"

#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace tools::horactl {

namespace {

constexpr std::int64_t longestDuration = 36525 * secondsOfDay; // 100 years
// The last day of 9999 begins, in UTC: in every zone clocks show a year of four digits.
constexpr std::int64_t latestMoment = 253402214400;

constexpr const char* timeForms =
    " is no time; one is 2026-11-29 02:30[:00], Tue 23:00, 23:00, +3h or @SECONDS (since 1970)";
constexpr const char* durationForms = " is no duration; one is 90s, 45min, 3h, 14d, or several as 1h30min";
constexpr const char* tooEarly = " is before 1970";
constexpr const char* tooLate = " is later than the year 9999";

[[noreturn]] void refuse(std::string_view text, const std::string& why) {
    throw WrongUse(inQuotes(text) + why);
}

std::string twoDigits(int number) {
    return (number < 10 ? "0" : "") + std::to_string(number);
}

std::string textOf(const LocalTime& time) {
    std::string year = std::to_string(time.year);
    year.insert(0, 4 - year.size(), '0');
    return year + '-' + twoDigits(time.month) + '-' + twoDigits(time.day) + ' ' + twoDigits(time.hour) + ':' +
           twoDigits(time.minute) + ':' + twoDigits(time.second);
}

bool isOnItsDay(const LocalTime& time, std::time_t moment) {
    const std::optional<LocalTime> shown = localTimeOf(moment);
    return shown && shown->year == time.year && shown->month == time.month && shown->day == time.day;
}

[[noreturn]] void refuseMissing(const LocalTime& time, const std::optional<Gap>& gap) {
    std::string text = textOf(time) + " does not exist in " + zoneName();
    if (gap) {
        const bool sameDay = isOnItsDay(time, gap->before) && isOnItsDay(time, gap->after);
        const auto shown = sameDay ? timeOfDay : timeForPerson;
        text += ": the clock goes from " + shown(gap->before) + " to " + shown(gap->after);
    }
    throw WrongUse(text);
}

std::string noteOnTwo(const LocalTime& time, std::time_t taken, std::time_t other) {
    const std::string begin = textOf(time) + " comes twice in " + zoneName() + ": ";
    const std::string which = timeOfDay(taken) + " (" + offsetText(taken) + ")";
    const std::string otherOne = orv::horad::isoTime(other);
    if (taken < other)
        return begin + "the first is taken, " + which + "; the second is " + otherOne;
    return begin + "the second is taken, " + which + "; the first, " + otherOne + ", is past";
}

// The first of its moments that is later than `present`, if there is one to compare with; nothing where all
// are past. A time that does not exist is refused, unless it would be past.
std::optional<ParsedTime> firstAfter(const LocalTime& time, std::optional<std::time_t> present) {
    const std::vector<std::time_t> moments = momentsOf(time);
    if (moments.empty()) {
        const std::optional<Gap> gap = gapAround(time);
        if (present && gap && gap->after <= *present)
            return std::nullopt;
        refuseMissing(time, gap);
    }
    const auto found = std::find_if(moments.begin(), moments.end(),
                                    [&](std::time_t moment) { return !present || moment > *present; });
    if (found == moments.end())
        return std::nullopt;
    if (moments.size() == 1)
        return ParsedTime{*found, ""};
    return ParsedTime{*found,
                      noteOnTwo(time, *found, found == moments.begin() ? moments.back() : moments.front())};
}

// The next one on that weekday, or on any day where none is given.
ParsedTime nextOne(const LocalTime& timeOfDay, std::optional<int> weekDay, std::time_t present) {
    constexpr int daysToLook = 16; // this week's day may have left the time out
    // Clocks that go back at midnight show yesterday's date once more.
    std::optional<LocalTime> day = localTimeOf(present - secondsOfDay);
    for (int count = 0; day && count < daysToLook; ++count, day = nextDay(*day)) {
        if (weekDay && weekDayOf(*day) != *weekDay)
            continue;
        const LocalTime time = {day->year,      day->month,       day->day,
                                timeOfDay.hour, timeOfDay.minute, timeOfDay.second};
        if (const std::optional<ParsedTime> found = firstAfter(time, present))
            return *found;
    }
    throw WrongUse("there is no such time in the two weeks from @" + std::to_string(present) + " on");
}

// From three letters on, in either case: 0 is Sunday.
std::optional<int> weekDayNamed(std::string_view word) {
    constexpr std::string_view names[] = {"sunday",   "monday", "tuesday", "wednesday",
                                          "thursday", "friday", "saturday"};
    constexpr std::size_t shortest = 3;
    std::string lower(word.substr(0, 16));
    for (char& letter : lower)
        letter = static_cast<char>(letter | 0x20); // it is an ASCII letter
    for (int day = 0; day < 7; ++day)
        if (lower.size() >= shortest && names[day].substr(0, lower.size()) == lower)
            return day;
    return std::nullopt;
}

struct Unit {
    std::string_view name;
    std::int64_t seconds;
};

constexpr Unit units[] = {{"d", secondsOfDay}, {"h", secondsOfHour}, {"min", secondsOfMinute}, {"s", 1}};

std::optional<std::int64_t> unitNamed(std::string_view name) {
    for (const Unit& unit : units)
        if (unit.name == name)
            return unit.seconds;
    return std::nullopt;
}

// Of what is left in the scanner. `text` is all that was given.
std::int64_t readDuration(Scanner scanner, std::string_view text) {
    std::int64_t seconds = 0;
    std::int64_t lastUnit = INT64_MAX;
    do {
        if (scanner.digits() == 0)
            refuse(text, durationForms);
        const std::optional<std::int64_t> number = scanner.takeNumber();
        if (!number || *number > longestDuration)
            refuse(text, " is longer than 100 years");
        const std::optional<std::int64_t> unit = unitNamed(scanner.takeWord());
        if (!unit)
            refuse(text, durationForms);
        if (*unit >= lastUnit)
            refuse(text, ": the largest unit comes first, and each one once");
        lastUnit = *unit;
        seconds += *number * *unit; // at most 100 years of seconds as days, four times
        if (seconds > longestDuration)
            refuse(text, " is longer than 100 years");
    } while (!scanner.atEnd());
    return seconds;
}

// One TIME on its way from the text.
class TimeReader {
public:
    TimeReader(std::string_view text, std::time_t present) : text_(text), present_(present), scanner_(text) {}

    ParsedTime read() {
        ParsedTime parsed = readForm();
        if (parsed.moment < 0)
            refuse(text_, tooEarly);
        if (parsed.moment > latestMoment)
            refuse(text_, tooLate);
        return parsed;
    }

private:
    ParsedTime readForm() {
        if (scanner_.take('+'))
            return {present_ + readDuration(scanner_, text_), ""};
        if (scanner_.take('@'))
            return readSeconds();
        if (const std::string_view word = scanner_.takeWord(); !word.empty())
            return readWeekDay(word);
        if (scanner_.digits() > 2)
            return readDate();
        return nextOne(readTimeOfDay(true), std::nullopt, present_);
    }

    ParsedTime readSeconds() {
        if (scanner_.take('-') && scanner_.digits() > 0)
            refuse(text_, tooEarly);
        const bool isNumber = scanner_.digits() == scanner_.rest().size() && !scanner_.atEnd();
        const std::optional<std::int64_t> seconds = scanner_.takeNumber();
        if (!isNumber)
            refuse(text_, timeForms);
        if (!seconds)
            refuse(text_, tooLate);
        return {*seconds, ""};
    }

    ParsedTime readWeekDay(std::string_view word) {
        const std::optional<int> weekDay = weekDayNamed(word);
        if (!weekDay || !scanner_.take(' '))
            refuse(text_, timeForms);
        return nextOne(readTimeOfDay(true), *weekDay, present_);
    }

    ParsedTime readDate() {
        LocalTime date = {};
        const bool isForm = scanner_.takeDigits(4, date.year) && scanner_.take('-') &&
                            scanner_.takeDigits(2, date.month) && scanner_.take('-') &&
                            scanner_.takeDigits(2, date.day) && (scanner_.take(' ') || scanner_.take('T'));
        if (!isForm)
            refuse(text_, timeForms);
        if (!isDate(date.year, date.month, date.day))
            refuse(text_, ": the calendar has no such date");
        LocalTime time = readTimeOfDay(false);
        time.year = date.year;
        time.month = date.month;
        time.day = date.day;
        if (scanner_.atEnd())
            return firstAfter(time, std::nullopt).value();
        return {secondsAsInUtc(time) - readOffset(), ""};
    }

    // Up to the end of the text, where nothing may follow.
    LocalTime readTimeOfDay(bool isLast) {
        LocalTime time = {};
        const bool hasHour = scanner_.takeDigits(2, time.hour) || scanner_.takeDigits(1, time.hour);
        bool isForm = hasHour && scanner_.take(':') && scanner_.takeDigits(2, time.minute);
        if (isForm && scanner_.take(':'))
            isForm = scanner_.takeDigits(2, time.second);
        if (!isForm || (isLast && !scanner_.atEnd()))
            refuse(text_, timeForms);
        if (time.hour > 23 || time.minute > 59 || time.second > 59)
            refuse(text_, ": a day goes from 00:00:00 to 23:59:59");
        return time;
    }

    // +0100 or +01:00, which is the end of the text.
    std::int64_t readOffset() {
        const bool isNegative = scanner_.take('-');
        if (!isNegative && !scanner_.take('+'))
            refuse(text_, timeForms);
        int hours = 0;
        int minutes = 0;
        int both = 0;
        if (scanner_.takeDigits(4, both)) {
            hours = both / 100;
            minutes = both % 100;
        } else if (!(scanner_.takeDigits(2, hours) && scanner_.take(':') &&
                     scanner_.takeDigits(2, minutes))) {
            refuse(text_, timeForms);
        }
        if (!scanner_.atEnd() || hours > 24 || minutes > 59)
            refuse(text_, timeForms);
        const std::int64_t offset = hours * secondsOfHour + minutes * secondsOfMinute;
        return isNegative ? -offset : offset;
    }

    std::string_view text_;
    std::time_t present_;
    Scanner scanner_;
};

} // namespace

ParsedTime parseTime(const std::string& text, std::time_t present) {
    return TimeReader(text, present).read();
}

std::int64_t parseDuration(const std::string& text) {
    return readDuration(Scanner(text), text);
}

std::int64_t parseStep(const std::string& text) {
    Scanner scanner(text);
    if (scanner.take('-'))
        return -readDuration(scanner, text);
    if (!scanner.take('+'))
        refuse(text, " has no direction; a step is +2h or -30min");
    return readDuration(scanner, text);
}

ParsedSpan parseSpan(const std::string& text, std::time_t present) {
    constexpr std::string_view between = "..";
    const std::size_t found = text.find(between);
    if (found == std::string::npos)
        refuse(text, " is not FROM..TO");
    ParsedTime from = parseTime(text.substr(0, found), present);
    ParsedTime to = parseTime(text.substr(found + between.size()), from.moment);
    if (to.moment <= from.moment)
        refuse(text, " does not end after its begin");
    return {std::move(from), std::move(to)};
}

} // namespace tools::horactl
