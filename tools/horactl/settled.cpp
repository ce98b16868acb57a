#include "tools/horactl/settled.h"

#include <algorithm>
#include <cstdint>

namespace tools::horactl {

namespace {} // namespace

Settled::Settled(const Question& question, const Line& line)
    : present_(question.present),
      forecast_(question.household, {question.present, question.repeatDelay, false},
                circumstancesOf(question, line, LineRuns::GoesOn)) {
    const EventReader reader(forecast_, [this](const Event& event) { events_.push_back(event); });
    forecast_.settle();
}

bool Settled::did(const Wanted& wanted) const {
    return std::any_of(events_.begin(), events_.end(), wanted);
}

std::optional<std::time_t> Settled::next(const Wanted& wanted) {
    std::optional<std::time_t> moment;
    const EventReader reader(forecast_, [&](const Event& event) {
        if (!moment && wanted(event))
            moment = event.time;
    });
    forecast_.runUntil(present_ + lookAhead, [&] { return !moment; });
    return moment;
}

} // namespace tools::horactl
