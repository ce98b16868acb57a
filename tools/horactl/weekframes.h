#pragma once

#include "tools/horactl/week.h"

#include <vector>

namespace tools::horactl {

// The time frames that reach into a span of time which begins with a full minute. Rows that horad leaves out
// are not among them. Nothing is known of their starts yet.
std::vector<WeekPicture::Frame> framesOf(const Household& household, const Span& span);

} // namespace tools::horactl
