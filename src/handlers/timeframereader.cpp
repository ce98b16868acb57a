#include "handlers/timeframereader.h"

#include "handlers/dbm.h"

#include <algorithm>
#include <climits>

namespace orv::horad {

using velta::ValueList;
using velta::protocol::EResultCode;

namespace {

int integerOf(const ValueList& row, const char* column) {
    return row.getValue(column).getInteger();
}

bool isKnownMode(int mode) {
    return mode >= InWindow && mode <= InWindowWhenIdle;
}

// The end's minute belongs to the window.
TimePlanEntry entryFrom(const ValueList& row) {
    constexpr int firstSecond = 0;
    constexpr int lastSecond = 59;
    const TimePlanTime start(integerOf(row, dbm::FirmwareUpdateTimePlan_StartTimeHour),
                             integerOf(row, dbm::FirmwareUpdateTimePlan_StartTimeMinute), firstSecond);
    const TimePlanTime stop(integerOf(row, dbm::FirmwareUpdateTimePlan_EndTimeHour),
                            integerOf(row, dbm::FirmwareUpdateTimePlan_EndTimeMinute), lastSecond);
    return TimePlanEntry(start, stop, integerOf(row, dbm::FirmwareUpdateTimePlan_WeekDay),
                         integerOf(row, dbm::FirmwareUpdateTimePlan_Enable) != 0);
}

} // namespace

int repeatIntervalOf(unsigned asked) {
    constexpr unsigned usual = 180; // seconds
    return static_cast<int>(std::min<unsigned>(asked != 0 ? asked : usual, INT_MAX));
}

std::optional<Timeframes> TimeframeReader::read() {
    unsigned rows = 0;
    const EResultCode sized = client_.size(dbm::TimeFrame, rows);
    if (!sized.ok()) {
        failTimeframes(sized);
        return std::nullopt;
    }
    log_.debug("load %zu entries from %s", std::size_t{rows}, dbm::TimeFrame);
    Timeframes frames;
    for (unsigned row = 0; row < rows; ++row)
        readFrame(row, frames);
    return frames;
}

void TimeframeReader::readFrame(unsigned index, Timeframes& frames) {
    ValueList row;
    const EResultCode selected = client_.selectRow(dbm::TimeFrame, index, row, velta::NameList());
    if (!selected.ok()) {
        failTimeframes(selected);
        return;
    }
    const int mode = integerOf(row, dbm::TimeFrame_WindowMode);
    if (!isKnownMode(mode)) {
        log_.warning("unknown timeframe mode %d", mode);
        return;
    }
    const std::string serviceTable = row.getValue(dbm::TimeFrame_Servicetable).getText();
    const auto seconds = [&row](const char* column) {
        return static_cast<std::uint32_t>(integerOf(row, column)); // unsigned, up to 2106
    };
    frames[integerOf(row, dbm::Id)] = std::make_unique<Timeframe>(
        serviceTable, integerOf(row, dbm::TimeFrame_ServicetableId), seconds(dbm::TimeFrame_Start),
        seconds(dbm::TimeFrame_End), mode, row.getValue(dbm::TimeFrame_UserMessage).getText(),
        integerOf(row, dbm::TimeFrame_MaxRetries), interval_, integerOf(row, dbm::TimeFrame_RunCounter),
        planFor(serviceTable), system_);
}

// A plan of its own for each frame.
std::shared_ptr<TimePlanFlex> TimeframeReader::planFor(const std::string& serviceTable) {
    if (serviceTable != dbm::FileTransfer)
        return std::make_shared<TimePlanFlex>();
    if (!userTimePlanRead_)
        userTimePlan_ = readUserTimePlan();
    userTimePlanRead_ = true;
    return userTimePlan_ ? std::make_shared<TimePlanFlex>(*userTimePlan_) : nullptr;
}

std::optional<TimePlanFlex> TimeframeReader::readUserTimePlan() {
    unsigned rows = 0;
    const EResultCode sized = client_.size(dbm::FirmwareUpdateTimePlan, rows);
    if (!sized.ok()) {
        failUserTimePlan(sized);
        return std::nullopt;
    }
    TimePlanFlex plan;
    for (unsigned i = 0; i < rows; ++i) {
        ValueList row;
        const EResultCode selected =
            client_.selectRow(dbm::FirmwareUpdateTimePlan, i, row, velta::NameList());
        if (selected.ok())
            plan.add(entryFrom(row));
        else
            failUserTimePlan(selected);
    }
    return plan;
}

void TimeframeReader::failUserTimePlan(const EResultCode& why) {
    complete_ = false;
    log_.error("error while reading user time plan entry for %s: %s)", dbm::FirmwareUpdateTimePlan,
               why.strerror().c_str());
}

void TimeframeReader::failTimeframes(const EResultCode& why) {
    complete_ = false;
    log_.error("load time frames: %s", why.strerror().c_str());
}

} // namespace orv::horad
