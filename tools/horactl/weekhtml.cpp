#include "tools/horactl/weekhtml.h"

#include "tools/horactl/localtime.h"
#include "tools/horactl/markup.h"
#include "tools/horactl/weekdays.h"
#include "tools/horactl/weekdrawing.h"
#include "tools/horactl/weekfacts.h"
#include "tools/horactl/weektext.h"

#include <algorithm>

namespace tools::horactl {

namespace {

// A name is isolated from what stands around it, in whatever direction it is written.
std::string cell(const char* tag, const std::string& text) {
    return std::string("<") + tag + "><bdi>" + escaped(text) + "</bdi></" + tag + ">";
}

constexpr const char* pageStyle = R"(:root { color-scheme: light dark; }
body { margin: 0 auto; padding: 16px; max-width: 1072px; font: 15px/1.45 system-ui, "Helvetica Neue", Arial, sans-serif; background: #ffffff; color: #1f2937; overflow-wrap: anywhere; }
h1 { font-size: 22px; margin: 0 0 4px; }
h2 { font-size: 17px; margin: 28px 0 8px; }
p { margin: 0 0 12px; color: #4b5563; }
p.present { color: #111827; font-size: 17px; }
svg.week { display: block; width: 100%; height: auto; }
svg.narrow { display: none; }
table { border-collapse: collapse; width: 100%; font-variant-numeric: tabular-nums; }
caption { text-align: left; color: #4b5563; padding-bottom: 8px; }
th, td { text-align: left; vertical-align: top; padding: 5px 10px 5px 0; border-bottom: 1px solid #d1d5db; font-weight: 400; }
thead th { color: #4b5563; }
th.day { font-weight: 600; padding-top: 16px; }
td.time, th.time { white-space: nowrap; }
@media (max-width: 600px) { body { padding: 10px 0; } h1, h2, p, table { margin-left: 10px; margin-right: 10px; } table { width: calc(100% - 20px); } svg.wide { display: none; } svg.narrow { display: block; } td.time, th.time { white-space: normal; } }
@media print { svg.wide { display: block; } svg.narrow { display: none; } }
@media (prefers-color-scheme: dark) { body { background: #111827; color: #e5e7eb; } p, caption, thead th { color: #9ca3af; } p.present { color: #f9fafb; } th, td { border-color: #374151; } }
)";

std::string head(const WeekPicture& picture) {
    return "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
           // Should a name ever get out of its place, it could still do nothing.
           "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src "
           "'unsafe-inline'\">\n"
           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
           "<meta name=\"color-scheme\" content=\"light dark\">\n<title>WLAN, " +
           escaped(weekText(picture)) + "</title>\n<style>\n" + pageStyle + drawingStyle +
           "</style>\n</head>\n";
}

// What a person wants to know first.
std::string presentText(const WeekPicture& picture) {
    if (!picture.present)
        return {};
    const auto piece = std::find_if(picture.wlan.begin(), picture.wlan.end(), [&](const auto& candidate) {
        return contains(candidate.span, *picture.present);
    });
    const auto change =
        std::find_if(piece, picture.wlan.end(), [&](const auto& later) { return later.on != piece->on; });
    const std::string until = change != picture.wlan.end() ? "until " + timeForPerson(change->span.begin)
                                                           : "for the rest of this week";
    return "<p class=\"present\">Now, " + escaped(timeForPerson(*picture.present)) +
           ", the WLAN is <strong>" + (piece->on ? "on" : "off") + "</strong> " + escaped(until) + ": <bdi>" +
           escaped(piece->why) + "</bdi>.</p>\n";
}

std::string dayRows(const WeekPicture& picture, const Span& day) {
    std::string rows = "<tbody>\n<tr><th class=\"day\" scope=\"rowgroup\" colspan=\"3\">" +
                       escaped(dateTextWithYear(day)) + "</th></tr>\n";
    for (const WeekFact& fact : factsOf(picture, day))
        rows += "<tr><td class=\"time\">" + escaped(fact.time) + "</td>" + cell("td", fact.what) +
                cell("td", fact.detail) + "</tr>\n";
    return rows + "</tbody>\n";
}

std::string table(const WeekPicture& picture) {
    std::string text = "<h2>The same in words</h2>\n<table>\n<caption>Local time, " + escaped(zoneName()) +
                       "</caption>\n<thead><tr><th class=\"time\" scope=\"col\">Time</th>"
                       "<th scope=\"col\">What</th><th scope=\"col\">Which row</th></tr></thead>\n";
    for (const Span& day : picture.days)
        text += dayRows(picture, day);
    return text + "</table>\n";
}

} // namespace

std::string htmlOf(const WeekPicture& picture) {
    WeekLayout wide = wideLayout;
    wide.titled = false;
    return head(picture) + "<body>\n<h1>When the WLAN is on</h1>\n<p>" + escaped(weekText(picture)) + ", " +
           escaped(zoneName()) + "</p>\n" + presentText(picture) + "<figure style=\"margin:0\">\n" +
           drawingOf(picture, wide) + drawingOf(picture, narrowLayout) + "</figure>\n" + table(picture) +
           "</body>\n</html>\n";
}

} // namespace tools::horactl
