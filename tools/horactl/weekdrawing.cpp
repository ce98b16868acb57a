#include "tools/horactl/weekdrawing.h"

#include "handlers/dbm.h"
#include "tools/horactl/daymarks.h"
#include "tools/horactl/drawinglegend.h"
#include "tools/horactl/localtime.h"
#include "tools/horactl/markup.h"
#include "tools/horactl/slotlanes.h"
#include "tools/horactl/svgcanvas.h"
#include "tools/horactl/weekdays.h"
#include "tools/horactl/weektext.h"
#include "tools/text.h"

#include <algorithm>
#include <optional>
#include <vector>

namespace tools::horactl {

namespace dbm = orv::horad::dbm;

const WeekLayout wideLayout = {"wide", 1040, 112, true, 2, true};
const WeekLayout narrowLayout = {"narrow", 360, 8, false, 3, false};

namespace {

constexpr double right = 12;    // free at the right edge
constexpr double textSize = 11; // of what stands in bars
constexpr double smallTextSize = 10;
constexpr double rulerHeight = 16;
constexpr double dateHeight = 20; // above a day
constexpr double markHeight = 14; // a row of marks
constexpr double wlanHeight = 24;
constexpr double laneHeight = 15;
constexpr double frameHeight = 16;
constexpr double betweenDays = 12;

class Drawing {
public:
    Drawing(const WeekPicture& picture, const WeekLayout& layout) : picture_(picture), layout_(layout) {
        for (const Span& day : picture.days)
            longest_ = std::max(longest_, day.end - day.begin);
    }

    std::string draw() {
        if (layout_.titled)
            title();
        for (const Span& day : picture_.days)
            drawDay(day);
        y_ = drawLegend(front_, {layout_.left, y_, layout_.width - layout_.left - right / 2, 0});
        const std::string size = shortNumber(layout_.width) + " " + shortNumber(y_);
        const std::string name = std::string("week ") + layout_.name;
        return "<svg xmlns=\"http://www.w3.org/2000/svg\" role=\"img\"" + attribute("class", name) +
               attribute("viewBox", "0 0 " + size) + attribute("width", layout_.width) +
               attribute("height", y_) +
               attribute("aria-label", "When the WLAN is on, " + weekText(picture_)) + ">\n" +
               "<rect class=\"page\" width=\"100%\" height=\"100%\"/>\n" + back_.elements() +
               front_.elements() + "</svg>\n";
    }

private:
    double xOf(const Span& day, std::time_t moment) const {
        const auto passed = static_cast<double>(std::clamp(moment, day.begin, day.end) - day.begin);
        return layout_.left + passed * (layout_.width - layout_.left - right) / static_cast<double>(longest_);
    }

    Box boxOf(const Span& day, const Span& span, double top, double height) const {
        const double x = xOf(day, span.begin);
        constexpr double least = 1.5; // so that the shortest can be seen
        return {x, top, std::max(xOf(day, span.end) - x, least), height};
    }

    void title() {
        front_.text(textSize, 26, "title", weekText(picture_) + " \u00b7 " + zoneName());
        y_ = 40;
    }

    void drawDay(const Span& day) {
        if (!layout_.datesBeside) {
            front_.text(layout_.left, y_ + 15, "date", dateText(day));
            y_ += dateHeight;
        }
        ruler(day);
        const double top = y_;
        const std::vector<DayMark> marks = marksOf(picture_, day);
        const std::vector<double> markLines = placeMarks(day, marks);
        const double bars = y_;
        if (layout_.datesBeside)
            front_.text(textSize, y_ + 17, "date", dateText(day));
        wlan(day);
        for (const std::string& table : tables())
            lanes(day, table);
        frames(day);
        for (const HourMark& hour : hourMarks(day, layout_.rulerStep))
            back_.verticalLine(xOf(day, hour.at), top, y_, "grid");
        past(day, bars);
        for (std::size_t i = 0; i < marks.size(); ++i)
            front_.verticalLine(xOf(day, marks[i].at), markLines[i], y_, marks[i].look);
        y_ += betweenDays;
    }

    // Where the one above does not hold.
    void ruler(const Span& day) {
        std::string key;
        for (const HourMark& hour : hourMarks(day, layout_.rulerStep))
            key += std::to_string(hour.at - day.begin) + "=" + std::to_string(hour.hour) + " ";
        if (layout_.datesBeside && key == shownRuler_)
            return;
        shownRuler_ = key;
        for (const HourMark& hour : hourMarks(day, layout_.rulerStep)) {
            const std::string text = std::to_string(hour.hour);
            const double x = xOf(day, hour.at);
            if (hour.at == day.end)
                front_.textEndingAt(x, y_ + 12, "dim", text);
            else
                front_.text(x + (hour.at == day.begin ? 0 : -likelyWidth(text, textSize) / 2), y_ + 12, "dim",
                            text);
        }
        y_ += rulerHeight;
    }

    // Each in the first row in which it stands in nobody's way. Gives the y from which its line goes down.
    std::vector<double> placeMarks(const Span& day, const std::vector<DayMark>& marks) {
        MarkRows rows(layout_.width - right / 2);
        std::vector<double> lines;
        for (const DayMark& mark : marks) {
            const double x = xOf(day, mark.at);
            const MarkRows::Place place = rows.placeFor(x, likelyWidth(mark.text, textSize));
            const double base = y_ + static_cast<double>(place.row) * markHeight + 11;
            constexpr double aside = 7;
            if (place.behind)
                front_.text(x + aside, base, mark.textLook, mark.text);
            else
                front_.textEndingAt(x - aside, base, mark.textLook, mark.text);
            front_.triangle(x, base, mark.look);
            lines.push_back(base - aside);
        }
        y_ += static_cast<double>(rows.count()) * markHeight;
        return lines;
    }

    void wlan(const Span& day) {
        for (const WeekPicture::Wlan& piece : picture_.wlan) {
            const auto part = clipped(piece.span, day);
            if (!part)
                continue;
            const Box box = boxOf(day, *part, y_, wlanHeight);
            front_.box(box, piece.on ? "on" : "off",
                       wlanText(piece) + ", " + clockSpanText(day, *part, enDash));
            front_.textIn(box, piece.on ? "onName" : "offName",
                          piece.label.empty() ? (piece.on ? "on" : "off") : piece.label, textSize);
        }
        y_ += wlanHeight + 3;
    }

    // The WLAN's stand next to it.
    std::vector<std::string> tables() const {
        std::vector<std::string> all = tablesWithPlans(picture_);
        std::stable_partition(all.begin(), all.end(),
                              [](const std::string& table) { return table == dbm::WlanTimePlans; });
        return all;
    }

    void lanes(const Span& day, const std::string& table) {
        const std::vector<PlacedSlot> slots = placedSlots(picture_, table, day);
        if (slots.empty())
            return;
        tableName(table);
        const double height = static_cast<double>(laneCount(slots)) * laneHeight;
        for (const PlacedSlot& slot : slots)
            oneSlot(day, slot);
        for (const WeekPicture::Overlap& overlap : picture_.overlaps)
            if (const auto part = overlap.table == table ? clipped(overlap.span, day) : std::nullopt)
                overlapOver(boxOf(day, *part, y_ - 2, height + 4),
                            overlapText(picture_, overlap) + ", " + clockSpanText(day, *part, enDash));
        y_ += height + 6;
    }

    void overlapOver(const Box& box, const std::string& tip) {
        constexpr double edge = 3;
        front_.box(box, "overlap", tip);
        front_.box({box.x, box.y + box.height - 1, box.width, edge}, "overlapEdge", tip);
    }

    void tableName(const std::string& table) {
        const std::string text = printable(table);
        if (layout_.datesBeside) {
            front_.textIn({textSize - 4, y_, layout_.left - textSize, laneHeight}, "dim", text,
                          smallTextSize);
        } else if (table != dbm::WlanTimePlans) {
            front_.textIn({layout_.left - 4, y_, layout_.width - 2 * layout_.left, laneHeight}, "dim", text,
                          smallTextSize);
            y_ += laneHeight;
        }
    }

    void oneSlot(const Span& day, const PlacedSlot& slot) {
        const WeekPicture::Plan& plan = picture_.plans[slot.plan];
        const double top = y_ + static_cast<double>(slot.lane) * laneHeight;
        const Box box = boxOf(day, slot.span, top, laneHeight - 2);
        front_.box(box, plan.activating ? "activating" : "deactivating",
                   planText(plan) + ", " + clockSpanText(day, slot.span, enDash));
        front_.textIn(box, plan.activating ? "activatingName" : "deactivatingName", nameOf(plan),
                      smallTextSize);
    }

    void frames(const Span& day) {
        for (const WeekPicture::Frame& frame : picture_.frames)
            if (const auto part = clipped(frame.span, day))
                oneFrame(day, frame, *part);
    }

    void oneFrame(const Span& day, const WeekPicture::Frame& frame, const Span& part) {
        const Box box = boxOf(day, part, y_, frameHeight - 3);
        const std::string text = frameText(frame);
        front_.box(box, "frame", text + ", " + clockSpanText(day, part, enDash));
        for (const Span& open : frame.open)
            if (const auto piece = clipped(open, day))
                front_.box(boxOf(day, *piece, y_, frameHeight - 3), "frameOpen",
                           text + " may run, " + clockSpanText(day, *piece, enDash));
        frameName(day, frame, part, text);
        for (const std::time_t start : frame.starts)
            if (contains(day, start))
                front_.diamond(xOf(day, start), y_ + (frameHeight - 3) / 2, "start",
                               frame.service + " starts, " + clockText(day, start));
        y_ += frameHeight;
    }

    // In the longest piece of its box, or beside it.
    void frameName(const Span& day, const WeekPicture::Frame& frame, const Span& part,
                   const std::string& text) {
        constexpr double margin = 10;
        const Box box = boxOf(day, part, y_, frameHeight - 3);
        std::vector<std::time_t> edges = frame.starts;
        for (const Span& open : frame.open) {
            edges.push_back(open.begin);
            edges.push_back(open.end);
        }
        const Box piece = boxOf(day, longestBetween(part, edges), y_, frameHeight - 3);
        const double needed = likelyWidth(text, smallTextSize) + margin;
        const double behind = box.x + box.width;
        if (piece.width < needed && behind + needed < layout_.width)
            front_.text(behind + margin, box.y + 10, "frameName", text);
        else if (piece.width < needed && box.x - needed > layout_.left)
            front_.textEndingAt(box.x - margin, box.y + 10, "frameName", text);
        else
            front_.textIn(piece, "frameName", text, smallTextSize);
    }

    void past(const Span& day, double top) {
        if (!picture_.present)
            return;
        if (const auto over = clipped({day.begin, *picture_.present}, day))
            front_.box(boxOf(day, *over, top, y_ - top), "past");
    }

    const WeekPicture& picture_;
    const WeekLayout& layout_;
    std::time_t longest_ = 1; // seconds of a day
    double y_ = 8;            // the next thing's top
    std::string shownRuler_;
    SvgCanvas back_;
    SvgCanvas front_;
};

} // namespace

std::string drawingOf(const WeekPicture& picture, const WeekLayout& layout) {
    return Drawing(picture, layout).draw();
}

} // namespace tools::horactl
