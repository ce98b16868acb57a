#include "timeplan/timeplanflex.h"

#include <algorithm>
#include <functional>

namespace orv::horad {

void TimePlanFlex::add(const TimePlanEntry& entry) {
    const auto known = std::find(entries_.begin(), entries_.end(), entry);
    if (known != entries_.end())
        known->setEnable(entry.isEnabled());
    else
        entries_.push_back(entry);
}

TimePlanFlex::Iterator TimePlanFlex::getEntry(TimePlanEntry& entry) {
    return std::find(entries_.begin(), entries_.end(), entry);
}

bool TimePlanFlex::isActive(long seconds) const {
    const std::optional<LocalMoment> moment = LocalMoment::at(seconds);
    return moment ? isActive(*moment) : !isRestricted();
}

bool TimePlanFlex::isActive(const LocalMoment& moment) const {
    return !isRestricted() ||
           std::any_of(entries_.begin(), entries_.end(), [&moment](const TimePlanEntry& entry) {
               return entry.isEnabled() && entry.isInTimeWindow(moment);
           });
}

bool TimePlanFlex::isRestricted() const {
    return std::any_of(entries_.begin(), entries_.end(), std::mem_fn(&TimePlanEntry::isEnabled));
}

bool TimePlanFlex::operator==(const TimePlanFlex& other) const {
    return std::all_of(other.entries_.begin(), other.entries_.end(), [this](const TimePlanEntry& theirs) {
        const auto ours = std::find(entries_.begin(), entries_.end(), theirs);
        return ours != entries_.end() && ours->isEnabled() == theirs.isEnabled();
    });
}

} // namespace orv::horad
