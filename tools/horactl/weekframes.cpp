#include "tools/horactl/weekframes.h"

#include "handlers/timeframereader.h"
#include "simulation/machine.h"
#include "timeplan/localmoment.h"
#include "tools/horactl/frames.h"
#include "tools/horactl/weekdays.h"
#include "tools/horactl/wlanstate.h"
#include "tools/text.h"

#include <algorithm>
#include <optional>

namespace tools::horactl {

using orv::horad::TimePlanFlex;
using orv::simulation::Machine;
using orv::simulation::Tables;

namespace {

constexpr std::size_t longestText = 60;

// The windows of the user's time plan begin and end with minutes.
std::vector<Span> activeSpans(const TimePlanFlex& plan, const Span& span) {
    constexpr std::time_t minute = 60;
    std::vector<Span> spans;
    for (std::time_t begin = span.begin; begin < span.end;) {
        const std::time_t end = std::min(begin - begin % minute + minute, span.end);
        const auto moment = orv::horad::LocalMoment::at(begin);
        if (moment && plan.isActive(*moment)) {
            if (!spans.empty() && spans.back().end == begin)
                spans.back().end = end;
            else
                spans.push_back({begin, end});
        }
        begin = end;
    }
    return spans;
}

} // namespace

std::vector<WeekPicture::Frame> framesOf(const Household& household, const Span& span) {
    Tables tables = household.inMemory();
    Machine machine(span.begin * Machine::second);
    constexpr unsigned anyDelay = 0; // nothing of it shows
    std::vector<WeekPicture::Frame> frames;
    for (const auto& [id, frame] : readFrames(tables, anyDelay, machine)) {
        const Span whole = {secondsOf(frame->start()), secondsOf(frame->end()) + 1}; // the end belongs to it
        const std::optional<Span> part = clipped(whole, span);
        if (!part)
            continue;
        const auto plan = frame->timePlan();
        const bool restricted =
            frame->mode() == orv::horad::InWindowWhenIdle && plan != nullptr && plan->size() > 0;
        frames.push_back({id,
                          rowName(cut(printable(frame->name()), longestText), frame->id()),
                          cut(printable(frame->text()), longestText),
                          *part,
                          restricted,
                          restricted ? activeSpans(*plan, *part) : std::vector<Span>{*part},
                          {}});
    }
    return frames;
}

} // namespace tools::horactl
