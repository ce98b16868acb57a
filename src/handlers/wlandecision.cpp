#include "handlers/wlandecision.h"

namespace orv::horad {

WlanVote wlanVoteOf(int activate, int status) {
    if (activate == 1 && status == 1)
        return WlanVote::On;
    if (activate == 0 && status == 0)
        return WlanVote::Off;
    return WlanVote::Silent;
}

void WlanDecision::hear(int activate, int status) {
    if (heard_ == 0)
        wanted_ = activate == 0; // the first plan's kind makes the default, C3: sic
    const WlanVote vote = wlanVoteOf(activate, status);
    if (vote != WlanVote::Silent) {
        wanted_ = vote == WlanVote::On;
        decidedBy_ = heard_;
    }
    ++heard_;
}

WlanAction wlanActionOf(bool alwaysEnabled, bool enabled, bool wanted) {
    if (alwaysEnabled)
        return WlanAction::LeaveAlwaysEnabled;
    return enabled == wanted ? WlanAction::LeaveAsWanted : WlanAction::Switch;
}

} // namespace orv::horad
