#include "tools/horactl/weektext.h"

#include "handlers/dbm.h"
#include "tools/horactl/weekdays.h"
#include "tools/horactl/wlanstate.h"

#include <algorithm>

namespace tools::horactl {

namespace dbm = orv::horad::dbm;

std::vector<std::string> tablesWithPlans(const WeekPicture& picture) {
    std::vector<std::string> tables;
    for (const WeekPicture::Plan& plan : picture.plans)
        if (std::find(tables.begin(), tables.end(), plan.table) == tables.end())
            tables.push_back(plan.table);
    return tables;
}

std::string weekText(const WeekPicture& picture) {
    return dateTextWithYear(picture.days.front()) + " to " + dateTextWithYear(picture.days.back());
}

std::string wlanText(const WeekPicture::Wlan& piece) {
    return std::string(piece.on ? "WLAN on: " : "WLAN off: ") + piece.why;
}

std::string nameOf(const WeekPicture::Plan& plan) {
    return plan.name.empty() ? rowName(plan.table, plan.id) : plan.name;
}

std::string planText(const WeekPicture::Plan& plan) {
    const bool wlan = plan.table == dbm::WlanTimePlans;
    const char* const does =
        plan.activating ? (wlan ? "WLAN on" : "active") : (wlan ? "WLAN off" : "not active");
    return rowName(plan.table, plan.id) + (plan.name.empty() ? "" : " " + plan.name) + ": " + does +
           " in its slots";
}

std::string overlapText(const WeekPicture& picture, const WeekPicture::Overlap& overlap) {
    std::string text = std::to_string(overlap.count) + " plans: ";
    for (std::size_t i = 0; i < overlap.plans.size(); ++i)
        text += (i == 0 ? "" : ", ") + nameOf(picture.plans[overlap.plans[i]]);
    return overlap.count > overlap.plans.size() ? text + " and others" : text;
}

std::string frameText(const WeekPicture::Frame& frame) {
    return "frame " + std::to_string(frame.id) + ", " + frame.service;
}

std::string rebootText(const Span& day, std::time_t moment) {
    return "reboot, about " + clockText(day, moment);
}

} // namespace tools::horactl
