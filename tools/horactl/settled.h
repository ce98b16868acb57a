#pragma once

#include "tools/horactl/events.h"
#include "tools/horactl/forecast.h"
#include "tools/horactl/question.h"

#include <ctime>
#include <functional>
#include <optional>
#include <vector>

namespace tools::horactl {

// A horad that has started at the question's present, with what runs on the line then, and is quiet. It can
// go on from there.
class Settled {
public:
    using Wanted = std::function<bool(const Event&)>;

    Settled(const Question& question, const Line& line);

    const orv::simulation::Tables& tables() const { return forecast_.tables(); }
    // Whether it did that until it was quiet.
    bool did(const Wanted& wanted) const;
    // When it does that next, within eight days. Only once: time passes here.
    std::optional<std::time_t> next(const Wanted& wanted);

private:
    std::time_t present_;
    Forecast forecast_;
    std::vector<Event> events_;
};

} // namespace tools::horactl
