#include "tools/horactl/events.h"

#include "handlers/dbm.h"
#include "handlers/servicestates.h"
#include "tools/horactl/localtime.h"
#include "tools/horactl/wlanstate.h"
#include "tools/text.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace tools::horactl {

namespace dbm = orv::horad::dbm;
using orv::simulation::Tables;

namespace {

constexpr const char* names[] = {"wlan", "status", "service", "reboot", "clock"}; // in the order of What

std::string planOf(const Tables& tables, const Tables::Change& change) {
    const velta::ValueList* const row = orv::simulation::findRow(tables.rows(change.table), change.id);
    return row != nullptr ? planName(change.table, *row) : rowName(change.table, change.id);
}

Event statusEvent(std::time_t time, const Tables& tables, const Tables::Change& change) {
    return {time,
            Event::What::Status,
            change.after.getText(),
            {rowName(change.table, change.id)},
            planOf(tables, change)};
}

Event wlanEvent(std::time_t time, const Tables& tables, const Tables::Change& change) {
    const WlanState state = wlanStateOf(tables);
    Event event{time, Event::What::Wlan, change.after.getText(), {}, state.explanation()};
    if (state.row)
        event.rows = {rowName(dbm::WlanTimePlans, orv::simulation::idOf(*state.row))};
    return event;
}

bool isOfService(const Tables& tables, int frame, const Tables::Change& service) {
    return tables.text(dbm::TimeFrame, dbm::TimeFrame_Servicetable, frame) == service.table &&
           tables.number(dbm::TimeFrame, dbm::TimeFrame_ServicetableId, frame) == service.id;
}

// Its frames are those whose runs were counted with it.
Event serviceEvent(std::time_t time, const Tables& tables, const Tables::Change& change,
                   const Forecast::Changes& changes) {
    Event event{
        time, Event::What::Service, change.after.getText(), {}, rowName(change.table, change.id) + " starts"};
    for (const Tables::Change& other : changes)
        if (other.table == dbm::TimeFrame && other.column == dbm::TimeFrame_RunCounter &&
            isOfService(tables, other.id, change))
            event.rows.push_back(rowName(other.table, other.id));
    return event;
}

Event rebootEvent(std::time_t time, const Tables& tables, const Tables::Change& change) {
    return {time,
            Event::What::Reboot,
            change.after.getText(),
            {dbm::AutoReboot},
            "AutoReboot at " + printable(tables.text(dbm::AutoReboot, dbm::AutoReboot_Time)) +
                ", exact to a minute"};
}

} // namespace

const char* nameOf(Event::What what) {
    return names[static_cast<std::size_t>(what)];
}

EventReader::EventReader(Forecast& forecast, std::function<void(Event)> take)
    : forecast_(forecast), take_(std::move(take)) {
    forecast_.onCommit([this](std::time_t time, const Forecast::Changes& changes) { read(time, changes); });
}

void EventReader::read(std::time_t time, const Forecast::Changes& changes) {
    for (const Tables::Change& change : changes)
        readOne(time, change, changes);
}

void EventReader::readOne(std::time_t time, const Tables::Change& change, const Forecast::Changes& changes) {
    if (change.column == dbm::TimePlan_Status)
        take_(statusEvent(time, forecast_.tables(), change));
    else if (change.table == dbm::WlanGlobals && change.column == dbm::WlanGlobals_WlanEnable)
        take_(wlanEvent(time, forecast_.tables(), change));
    else if (change.table == dbm::Reboot)
        take_(rebootEvent(time, forecast_.tables(), change));
    else if (change.column == dbm::Service_Status)
        take_(serviceEvent(time, forecast_.tables(), change, changes));
}

std::vector<Event> clockChanges(std::time_t from, std::time_t to) {
    constexpr std::time_t step = 6 * 3600; // seconds; no zone changes twice in so short a time
    std::vector<Event> events;
    for (std::time_t begin = from; begin < to; begin += step) {
        std::time_t before = begin;
        std::time_t after = std::min(begin + step, to);
        const std::string old = offsetText(before);
        const std::string next = offsetText(after);
        if (old == next)
            continue;
        while (after - before > 1) {
            const std::time_t middle = before + (after - before) / 2;
            (offsetText(middle) == old ? before : after) = middle;
        }
        events.push_back({after,
                          Event::What::Clock,
                          next,
                          {},
                          "the clock changes, from " + timeOfDay(after - 1) + " to " + timeOfDay(after)});
    }
    return events;
}

std::vector<Event> nextEvents(Forecast& forecast, std::time_t from, std::time_t to, std::size_t most) {
    const std::vector<Event> clock = clockChanges(from, to);
    std::vector<Event> written;
    const EventReader reader(forecast, [&](Event event) { written.push_back(std::move(event)); });
    forecast.runUntil(to, [&] { return written.size() < most; });
    std::vector<Event> events;
    std::merge(clock.begin(), clock.end(), written.begin(), written.end(), std::back_inserter(events),
               [](const Event& one, const Event& other) { return one.time < other.time; });
    if (events.size() > most)
        events.resize(most);
    return events;
}

} // namespace tools::horactl
