#include "tools/horactl/weekfacts.h"

#include "tools/horactl/weekdays.h"
#include "tools/horactl/weektext.h"

#include <algorithm>
#include <utility>

namespace tools::horactl {

namespace {

class Facts {
public:
    Facts(const WeekPicture& picture, const Span& day) : picture_(picture), day_(day) {}

    std::vector<WeekFact> all() {
        for (const WeekPicture::Wlan& piece : picture_.wlan)
            span(piece.span, piece.on ? "WLAN on" : "WLAN off", piece.why);
        for (const WeekPicture::Plan& plan : picture_.plans)
            for (const Span& slot : plan.open)
                span(slot, "slot open", planText(plan));
        for (const WeekPicture::Overlap& overlap : picture_.overlaps)
            span(overlap.span, "plans overlap", overlapText(picture_, overlap));
        for (const WeekPicture::Frame& frame : picture_.frames)
            frameFacts(frame);
        for (const std::time_t reboot : picture_.reboots)
            moment(reboot, "about ", "reboot", "AutoReboot");
        for (const WeekPicture::ClockChange& change : picture_.clockChanges)
            moment(change.at, "", "clock change", change.text);
        if (picture_.present)
            moment(*picture_.present, "", "now", "");
        std::stable_sort(facts_.begin(), facts_.end(),
                         [](const WeekFact& one, const WeekFact& other) { return one.begin < other.begin; });
        return std::move(facts_);
    }

private:
    void span(const Span& span, const char* what, const std::string& detail) {
        if (const auto part = clipped(span, day_))
            facts_.push_back({part->begin, clockSpanText(day_, *part, enDash), what, detail});
    }

    void moment(std::time_t moment, const std::string& about, const char* what, const std::string& detail) {
        if (contains(day_, moment))
            facts_.push_back({moment, about + clockText(day_, moment), what, detail});
    }

    void frameFacts(const WeekPicture::Frame& frame) {
        const std::string detail = frameText(frame) + (frame.message.empty() ? "" : ": " + frame.message);
        span(frame.span, "time frame", detail);
        if (frame.restricted)
            for (const Span& open : frame.open)
                span(open, "open by the user's time plan", frameText(frame));
        for (const std::time_t start : frame.starts)
            moment(start, "", "service starts", detail);
    }

    const WeekPicture& picture_;
    const Span& day_;
    std::vector<WeekFact> facts_;
};

} // namespace

std::vector<WeekFact> factsOf(const WeekPicture& picture, const Span& day) {
    return Facts(picture, day).all();
}

} // namespace tools::horactl
