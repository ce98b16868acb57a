#include "tools/horactl/slotlanes.h"

#include "tools/horactl/weekdays.h"

#include <algorithm>

namespace tools::horactl {

namespace {

constexpr std::time_t touching = 60; // seconds: such slots stand in one lane

} // namespace

std::vector<PlacedSlot> placedSlots(const WeekPicture& picture, const std::string& table, const Span& day) {
    std::vector<PlacedSlot> slots;
    for (std::size_t plan = 0; plan < picture.plans.size(); ++plan)
        for (const Span& slot : picture.plans[plan].open)
            if (const auto part = picture.plans[plan].table == table ? clipped(slot, day) : std::nullopt)
                slots.push_back({plan, *part, 0});
    std::stable_sort(slots.begin(), slots.end(), [](const PlacedSlot& one, const PlacedSlot& other) {
        return one.span.begin < other.span.begin;
    });
    std::vector<std::time_t> freeFrom; // of each lane
    for (PlacedSlot& slot : slots) {
        const auto lane = std::find_if(freeFrom.begin(), freeFrom.end(),
                                       [&](std::time_t from) { return from < slot.span.begin + touching; });
        slot.lane = static_cast<std::size_t>(lane - freeFrom.begin());
        if (lane == freeFrom.end())
            freeFrom.push_back(slot.span.end);
        else
            *lane = slot.span.end;
    }
    return slots;
}

std::size_t laneCount(const std::vector<PlacedSlot>& slots) {
    std::size_t count = 0;
    for (const PlacedSlot& slot : slots)
        count = std::max(count, slot.lane + 1);
    return count;
}

} // namespace tools::horactl
