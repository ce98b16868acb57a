#pragma once

#include "tools/horactl/week.h"

#include <ctime>
#include <string>
#include <vector>

// What all pictures of a week say in the same words.
namespace tools::horactl {

// The followed tables that have a plan, in their order.
std::vector<std::string> tablesWithPlans(const WeekPicture& picture);

// "Mon 23 Nov 2026 to Sun 29 Nov 2026".
std::string weekText(const WeekPicture& picture);
// "WLAN on: WlanTimePlans.2 Weekend".
std::string wlanText(const WeekPicture::Wlan& piece);
// "Night", or "WlanTimePlans.2" where it has no name.
std::string nameOf(const WeekPicture::Plan& plan);
// "WlanTimePlans.2 Night: off in its slots".
std::string planText(const WeekPicture::Plan& plan);
// "2 plans: Night, Weekend".
std::string overlapText(const WeekPicture& picture, const WeekPicture::Overlap& overlap);
// "frame 1, FileTransfer.1".
std::string frameText(const WeekPicture::Frame& frame);
// "reboot, about 03:30".
std::string rebootText(const Span& day, std::time_t moment);

} // namespace tools::horactl
