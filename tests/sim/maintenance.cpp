#include "sim/happenings.h"

#include <algorithm>
#include <string>

// The owner's time frames, and the services that they start.
namespace sim {

using orv::simulation::idOf;

namespace {

constexpr int services = 4;
constexpr int mostFrames = 4;
constexpr int mostEntries = 4; // of the user's plan
enum ServiceStatus { Waiting = 0, Started = 1, Working = 2, Done = 5 };

int clockNow(const Household& household) {
    return static_cast<int>(household.rightClock() / second);
}

void addFrame(Household& household, Random& random) {
    static const int lengths[] = {60, 300, 3600, 7200, 86400, 259200}; // seconds
    if (household.tables().rows("TimeFrame").size() >= mostFrames)
        return;
    Row frame = newRow("TimeFrame", random.number(1, 999));
    const int start = clockNow(household) + random.number(-3600, 86400);
    set(frame, "WindowMode", random.number(1, 3));
    set(frame, "ServicetableId", random.number(1, services + 1)); // of the last one there is no row
    set(frame, "TimeFrameStart", start);
    set(frame, "TimeFrameEnd", start + random.among(lengths) + random.number(-30, 30));
    set(frame, "MaxRetries", random.number(-1, 5));
    household.remove("TimeFrame", idOf(frame));
    household.insert("TimeFrame", frame);
}

void changeFrame(Household& household, Random& random) {
    const Row* const frame = anyRow(household, "TimeFrame", random);
    if (frame == nullptr)
        return;
    const int id = idOf(*frame);
    switch (random.below(7)) {
    case 0:
        return household.change("TimeFrame", id, "TimeFrameEnd",
                                clockNow(household) + random.number(0, 7200));
    case 1:
        return household.change("TimeFrame", id, "WindowMode", random.number(1, 3));
    case 2:
        return household.change("TimeFrame", id, "MaxRetries", random.number(-1, 10));
    case 3:
        return household.change("TimeFrame", id, "UserMessage", std::to_string(random.number(0, 9)));
    case 4: // horad does not look at it
        return household.change("TimeFrame", id, "RunCounter", random.number(0, 3));
    default:
        return household.remove("TimeFrame", id);
    }
}

void editUserPlan(Household& household, Random& random) {
    const Rows& rows = household.tables().rows("FirmwareUpdateTimePlan");
    if (rows.size() >= mostEntries || (!rows.empty() && random.chance(40)))
        return household.remove("FirmwareUpdateTimePlan", idOf(random.among(rows)));
    Row entry = newRow("FirmwareUpdateTimePlan", random.number(1, 999));
    set(entry, "Enable", random.chance(80) ? 1 : 0);
    set(entry, "WeekDay", random.chance(40) ? 0 : random.number(1, 7));
    set(entry, "StartTimeHour", random.number(0, 23));
    set(entry, "StartTimeMinute", random.number(0, 59));
    set(entry, "EndTimeHour", random.number(0, 24));
    set(entry, "EndTimeMinute", random.number(0, 59));
    household.remove("FirmwareUpdateTimePlan", idOf(entry));
    household.insert("FirmwareUpdateTimePlan", entry);
}

// Whoever works on a service finds it in the state in which he left it, or leaves it alone.
void advance(Household& household, int id, int from, int to, int result) {
    household.edit("FileTransfer", [=](Rows& rows) {
        for (Row& row : rows)
            if (idOf(row) == id && row.getValue("Status").getInteger() == from) {
                set(row, "Status", to);
                set(row, "Result", result);
            }
    });
}

void finish(Household& household, Random& random, int id, int result) {
    advance(household, id, Working, Done, result);
    if (random.chance(50))
        household.change("wexd", 0, "Enable", 0);
}

// The owner wants it again, or gives up on it.
void reset(Household& household, Random& random) {
    const int id = random.number(1, services);
    const int status = household.tables().number("FileTransfer", "Status", id);
    if (status == Done)
        advance(household, id, Done, Waiting, 0);
    else if (status != Waiting)
        advance(household, id, status, Done, 1);
}

// Three in ten succeed, and one in ten is stuck for hours.
void work(Household& household, const std::shared_ptr<Random>& random, int id) {
    const std::int64_t fate = random->below(10);
    const int result = fate < 3 ? 0 : random->number(1, 9);
    const Microseconds span =
        fate == 9 ? random->between(1 * hour, 12 * hour) : random->between(1 * second, 20 * minute);
    advance(household, id, Started, Working, 0);
    household.machine().after(span,
                              [&household, random, id, result] { finish(household, *random, id, result); });
}

} // namespace

void keepTimeframes(Household& household, const std::shared_ptr<Random>& random) {
    recur(household, random, 30 * minute, 20 * hour, [](Household& house, Random& chance) {
        if (chance.chance(60))
            addFrame(house, chance);
        else
            changeFrame(house, chance);
    });
}

void keepUserPlan(Household& household, const std::shared_ptr<Random>& random) {
    recur(household, random, 2 * hour, 4 * day, editUserPlan);
}

void runServices(Household& household, const std::shared_ptr<Random>& random) {
    for (int id = 1; id <= services; ++id)
        household.insert("FileTransfer", newRow("FileTransfer", id));
    household.onCommit([&household, random](const Tables::Changes& changes) {
        for (const Tables::Change& change : changes)
            if (change.table == "FileTransfer" && change.after.getInteger() == Started)
                household.machine().after(
                    random->between(0, 30 * second),
                    [&household, random, id = change.id] { work(household, random, id); });
    });
    recur(household, random, 1 * hour, 12 * hour, reset);
}

void haveCalls(Household& household, const std::shared_ptr<Random>& random) {
    recur(household, random, 5 * minute, 10 * hour, [](Household& house, Random& chance) {
        house.setCall(true);
        const Microseconds length =
            chance.chance(10) ? chance.between(1 * hour, 30 * hour) : chance.between(5 * second, 90 * minute);
        house.machine().after(length, [&house] { house.setCall(false); });
    });
}

void haveCallsAtReboots(Household& household, const std::shared_ptr<Random>& random) {
    recur(household, random, 12 * hour, 5 * day, [](Household& house, Random& chance) {
        const Microseconds early = chance.between(0, 10 * minute);
        const Microseconds length = chance.chance(50) ? chance.between(55 * minute, 75 * minute)
                                                      : chance.between(1 * minute, 3 * hour);
        house.machine().after(std::max<Microseconds>(0, untilReboot(house) - early), [&house, length] {
            house.setCall(true);
            house.machine().after(length, [&house] { house.setCall(false); });
        });
    });
}

void haveStreams(Household& household, const std::shared_ptr<Random>& random) {
    recur(household, random, 1 * hour, 20 * hour, [](Household& house, Random& chance) {
        house.setStream(true);
        house.machine().after(chance.between(1 * minute, 5 * hour), [&house] { house.setStream(false); });
    });
}

} // namespace sim
