#include "tools/horactl/weekbars.h"

#include "handlers/dbm.h"
#include "tools/horactl/barline.h"
#include "tools/horactl/daynotes.h"
#include "tools/horactl/localtime.h"
#include "tools/horactl/weekdays.h"
#include "tools/horactl/weektext.h"
#include "tools/terminal.h"
#include "tools/text.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>

#include <langinfo.h>
#include <locale.h>
#include <unistd.h>

namespace tools::horactl {

namespace dbm = orv::horad::dbm;

namespace {

constexpr std::size_t leastWidth = 40;
constexpr std::size_t labelCells = 11; // "Mon 23 Nov " stands in front of each bar

std::time_t longestOf(const std::vector<Span>& days) {
    std::time_t longest = 0;
    for (const Span& day : days)
        longest = std::max(longest, day.end - day.begin);
    return longest;
}

bool isUtf8Locale() {
    const locale_t users = newlocale(LC_CTYPE_MASK, "", nullptr);
    if (users == nullptr)
        return false;
    const bool utf8 = std::strcmp(nl_langinfo_l(CODESET, users), "UTF-8") == 0;
    freelocale(users);
    return utf8;
}

bool isSet(const char* variable) {
    const char* const value = std::getenv(variable); // NOLINT(concurrency-mt-unsafe)
    return value != nullptr && *value != '\0';
}

class Bars {
public:
    Bars(const WeekPicture& picture, const BarStyle& style)
        : picture_(picture), style_(style), scale_(longestOf(picture.days), style.width - labelCells) {}

    std::string draw() {
        line(weekText(picture_) + ", " + zoneName());
        line("");
        block("WLAN", [&](const Span& day) { wlanDay(day); });
        for (const std::string& table : tablesWithPlans(picture_))
            if (table != dbm::WlanTimePlans) {
                line("");
                block(table, [&](const Span& day) { planDay(table, day); });
            }
        line("");
        legend();
        plans();
        return text_;
    }

private:
    using DrawDay = std::function<void(const Span& day)>;

    void line(std::string text) {
        while (!text.empty() && text.back() == ' ')
            text.pop_back();
        text_ += text + "\n";
    }

    void block(const std::string& title, const DrawDay& drawDay) {
        std::string shownRuler;
        const std::string shownTitle = cut(shownIn(style_, printable(title)), style_.width);
        const bool fits = width(shownTitle) < labelCells;
        if (!fits)
            line(shownTitle);
        std::string label = fits ? shownTitle : "";
        for (const Span& day : picture_.days) {
            const std::string ruler = rulerOf(day);
            if (ruler != shownRuler)
                line(padded(label) + ruler);
            label.clear();
            shownRuler = ruler;
            drawDay(day);
        }
    }

    static std::string padded(std::string label) {
        label.resize(labelCells + label.size() - width(label), ' ');
        return label;
    }

    std::string rulerOf(const Span& day) const {
        std::string ruler(scale_.cells(), ' ');
        for (const HourMark& mark : hourMarks(day, rulerStep())) {
            const std::string hour = std::to_string(mark.hour);
            const std::size_t last = scale_.cellsOf(day) - hour.size();
            ruler.replace(std::min(scale_.cellAt(day, mark.at), last), hour.size(), hour);
        }
        return ruler.substr(0, ruler.find_last_not_of(' ') + 1);
    }

    // So that three digits have room between two of them.
    int rulerStep() const {
        constexpr std::size_t leastCells = 4;
        for (const int step : {1, 2, 3})
            if (scale_.cells() * static_cast<std::size_t>(step) / 25 >= leastCells)
                return step;
        return 6; // has room on the narrowest terminal
    }

    void wlanDay(const Span& day) {
        std::vector<BarPiece> pieces;
        for (const WeekPicture::Wlan& piece : picture_.wlan)
            if (const auto part = clipped(piece.span, day))
                pieces.push_back({*part, piece.on ? Ink::On : Ink::Off, {piece.label, numberOf(piece.by)}});
        bar(day, std::move(pieces));
        const DayNotes notes(picture_, scale_, style_, day);
        beneath(notes.marks());
        beneath(notes.overlaps(dbm::WlanTimePlans));
        beneath(notes.frames());
    }

    // What follows the dot of "WlanTimePlans.2".
    static std::string numberOf(const std::string& row) {
        const std::size_t dot = row.rfind('.');
        return dot == std::string::npos ? "" : row.substr(dot + 1);
    }

    void planDay(const std::string& table, const Span& day) {
        std::vector<BarPiece> pieces;
        for (const WeekPicture::Plan& plan : picture_.plans)
            for (const Span& slot : plan.open)
                if (const auto part = plan.table == table ? clipped(slot, day) : std::nullopt)
                    pieces.push_back({*part, Ink::Slot, {plan.name, std::to_string(plan.id)}});
        for (const WeekPicture::Overlap& overlap : picture_.overlaps)
            if (const auto part = overlap.table == table ? clipped(overlap.span, day) : std::nullopt)
                pieces.push_back({*part, Ink::Overlap, {}});
        bar(day, std::move(pieces));
        beneath(DayNotes(picture_, scale_, style_, day).overlaps(table));
    }

    // Short ones come last, so that none is hidden by its neighbour.
    void bar(const Span& day, std::vector<BarPiece> pieces) {
        const auto isLong = [&](const BarPiece& piece) {
            return scale_.cellAt(day, piece.span.end) > scale_.cellAt(day, piece.span.begin);
        };
        std::stable_partition(pieces.begin(), pieces.end(), isLong);
        BarLine bar(scale_, day, style_);
        for (const BarPiece& piece : pieces)
            bar.draw(piece);
        line(padded(dateText(day)) + bar.text());
    }

    void beneath(const std::vector<std::string>& notes) {
        for (const std::string& note : notes)
            line(std::string(labelCells, ' ') + note);
    }

    // What each ink means, as many on a line as fit.
    void legend() {
        struct Meaning {
            Ink ink;
            const char* text;
        };
        constexpr Meaning meanings[] = {
            {Ink::On, "WLAN on"},
            {Ink::Off, "WLAN off, by the plan in the bar"},
            {Ink::Slot, "a plan's slot"},
            {Ink::Overlap, "slots of several plans"},
            {Ink::Frame, "time frame"},
            {Ink::Closed, "closed by the user's time plan"},
            {Ink::Start, "start of its service"},
            {Ink::Mark, "moment"},
        };
        constexpr std::size_t between = 3; // blanks
        std::string shown;
        std::size_t used = 0;
        for (const Meaning& meaning : meanings) {
            const std::size_t needed = width(meaning.text) + 2;
            if (used != 0 && used + between + needed > style_.width) {
                line(shown);
                shown.clear();
                used = 0;
            }
            shown += std::string(used != 0 ? between : 0, ' ') + inkSample(meaning.ink, style_) + " " +
                     meaning.text;
            used += (used != 0 ? between : 0) + needed;
        }
        line(shown);
    }

    void plans() {
        for (const WeekPicture::Plan& plan : picture_.plans)
            if (!plan.open.empty())
                line(cut(shownIn(style_, planText(plan)), style_.width));
    }

    const WeekPicture& picture_;
    BarStyle style_;
    BarScale scale_;
    std::string text_;
};

} // namespace

BarStyle styleOfStandardOutput() {
    BarStyle style;
    style.width = terminalWidth().value_or(style.width);
    style.utf8 = isUtf8Locale();
    style.colours = isatty(STDOUT_FILENO) == 1 && !isSet("NO_COLOR");
    return style;
}

std::string barsOf(const WeekPicture& picture, const BarStyle& style) {
    BarStyle wide = style;
    wide.width = std::max(style.width, leastWidth);
    return Bars(picture, wide).draw();
}

} // namespace tools::horactl
