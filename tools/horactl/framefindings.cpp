#include "handlers/dbm.h"
#include "handlers/timeframereader.h"
#include "simulation/machine.h"
#include "simulation/schema.h"
#include "timeplan/localmoment.h"
#include "timeplan/timeframe.h"
#include "tools/horactl/findings.h"
#include "tools/horactl/frames.h"
#include "tools/horactl/localtime.h"
#include "tools/horactl/wlanstate.h"

#include <algorithm>

namespace tools::horactl {

namespace dbm = orv::horad::dbm;
using orv::horad::LocalMoment;
using orv::horad::ServiceState;
using orv::horad::Timeframe;
using orv::horad::TimePlanFlex;
using orv::simulation::idOf;
using orv::simulation::Machine;
using velta::ValueList;

namespace {

std::string spanOf(const Timeframe& frame) {
    return timeForPerson(secondsOf(frame.start())) + " to " + timeForPerson(secondsOf(frame.end()));
}

bool isSet(const Timeframe& frame) {
    return secondsOf(frame.start()) != 0 || secondsOf(frame.end()) != 0;
}

bool isBackwards(const Timeframe& frame) {
    return frame.end() < frame.start();
}

// Whether the plan is active at some moment of the frame. Windows begin and end with a minute, and come again
// each week.
bool meets(const TimePlanFlex& plan, std::time_t begin, std::time_t end) {
    constexpr std::time_t aMinute = 60;
    constexpr std::time_t longest = std::time_t{15} * 24 * 3600; // a change of the clock may drop one window
    const auto isActive = [&plan](std::time_t time) {
        const std::optional<LocalMoment> moment = LocalMoment::at(time);
        return moment && plan.isActive(*moment);
    };
    for (std::time_t time = begin; time <= std::min(end, begin + longest); time += aMinute)
        if (isActive(time))
            return true;
    return isActive(end);
}

class FrameFindings {
public:
    FrameFindings(Inquiry& inquiry, Findings& findings)
        : inquiry_(inquiry),
          findings_(findings),
          machine_(std::int64_t{inquiry.input.now} * Machine::second),
          interval_(orv::horad::repeatIntervalOf(inquiry.input.repeatDelay)),
          frames_(readFrames(inquiry.tables, inquiry.input.repeatDelay, machine_)) {}

    void find() {
        for (const ValueList& row : inquiry_.tables.rows(dbm::TimeFrame)) {
            const auto frame = frames_.find(idOf(row));
            if (frame == frames_.end())
                add(row, dbm::TimeFrame_WindowMode, "a mode that horad does not know: it leaves the row out",
                    "1 to start at once, 3 to wait for the user's time plan and an idle line");
            else
                findInFrame(row, *frame->second);
        }
        for (const ValueList& row : inquiry_.tables.rows(dbm::FirmwareUpdateTimePlan))
            findInWindow(row);
    }

private:
    void findInFrame(const ValueList& row, const Timeframe& frame) {
        findInService(row, frame);
        if (!isSet(frame))
            return;
        if (isBackwards(frame)) {
            add(row, dbm::TimeFrame_End,
                "the frame ends before it begins: nothing is ever started in it, " + spanOf(frame),
                "an end behind the start, " + std::to_string(secondsOf(frame.start())));
            return;
        }
        if (frame.isOver()) {
            if (!hasSucceeded(frame))
                add(row, dbm::TimeFrame_End,
                    "the frame is over since " + timeForPerson(secondsOf(frame.end())) +
                        ": its service did not succeed in it, and is not started any more",
                    "an end that is still to come; 0 as start and end for none");
            return;
        }
        findInSpan(row, frame);
        findOverlaps(row, frame);
    }

    void findInService(const ValueList& row, const Timeframe& frame) {
        const bool known = frame.name() == dbm::FileTransfer;
        if (!known)
            add(row, dbm::TimeFrame_Servicetable,
                inquiry_.household.tables.count(frame.name()) == 0
                    ? "there is no such table: runs are counted, but nothing is started"
                    : "horad does not follow this table: a service is started once, and then taken for "
                      "running "
                      "for good",
                dbm::FileTransfer);
        else if (inquiry_.household.row(frame.name(), frame.id()) == nullptr &&
                 (isSet(frame) || frame.id() != 0))
            add(row, dbm::TimeFrame_ServicetableId,
                "there is no row " + rowName(frame.name(), frame.id()) +
                    ": runs are counted, but nothing is started",
                rowsOf(frame.name()));
    }

    std::string rowsOf(const std::string& table) const {
        const auto& rows = inquiry_.tables.rows(table);
        if (rows.empty())
            return "a row in " + table + ", which has none";
        constexpr std::size_t most = 5;
        std::string ids;
        for (std::size_t i = 0; i < std::min(rows.size(), most); ++i)
            ids += (i == 0 ? "" : ", ") + std::to_string(idOf(rows[i]));
        return "one of the rows of " + table + ": " + ids + (rows.size() > most ? ", ..." : "");
    }

    void findInSpan(const ValueList& row, const Timeframe& frame) {
        const std::time_t length = secondsOf(frame.end()) - secondsOf(frame.start());
        if (length < interval_)
            add(row, dbm::TimeFrame_End,
                "the frame lasts " + spanText(length) + ", less than the " + spanText(interval_) +
                    " between two runs: a service that fails is started again at once, without a pause",
                "an end at least " + spanText(interval_) + " behind the start");
        if (!frame.hasRunLeft() && !hasSucceeded(frame))
            add(row, dbm::TimeFrame_RunCounter,
                "all runs are used up, a MaxRetries of " + std::to_string(frame.maxRuns()) + " allows " +
                    std::to_string(std::int64_t{frame.maxRuns()} + 1) +
                    ": its service is not started any more",
                "0 for a new frame, or a higher MaxRetries (-1 for no limit)");
        if (frame.mode() == orv::horad::InWindowWhenIdle && frame.timePlan() &&
            !meets(*frame.timePlan(), secondsOf(frame.start()), secondsOf(frame.end())))
            add(row, dbm::TimeFrame_WindowMode,
                "it waits for a window of FirmwareUpdateTimePlan, and none that is enabled meets the "
                "frame, " +
                    spanOf(frame) + ": nothing is ever started in it",
                "a window within the frame, or mode 1, which waits for none");
    }

    // With frames of lower Ids, which are named.
    void findOverlaps(const ValueList& row, const Timeframe& frame) {
        for (const auto& [id, other] : frames_) {
            if (id >= idOf(row))
                return;
            const bool same = other->name() == frame.name() && other->id() == frame.id();
            if (same && isSet(*other) && !isBackwards(*other) && !other->isOver() &&
                other->start() <= frame.end() && frame.start() <= other->end())
                add(row, dbm::TimeFrame_Start,
                    "it overlaps with " + rowName(dbm::TimeFrame, id) + ", which starts the same " +
                        rowName(frame.name(), frame.id()) +
                        ": both start it, each at its own times, and both "
                        "count the runs that they start",
                    "one frame, or one that begins behind " + timeForPerson(secondsOf(other->end())));
        }
    }

    // A window that is enabled, but never comes.
    void findInWindow(const ValueList& row) {
        constexpr std::time_t aWeek = std::time_t{7} * 24 * 3600;
        if (numberOf(row, dbm::FirmwareUpdateTimePlan_Enable) == 0)
            return;
        const std::time_t begin = quietMidnight(inquiry_.input.now, 7);
        if (!meets(planOf(row), begin, begin + aWeek - 1))
            findings_.push_back(
                {rowName(dbm::FirmwareUpdateTimePlan, idOf(row)), dbm::FirmwareUpdateTimePlan_EndTimeHour,
                 valueOf(row, dbm::FirmwareUpdateTimePlan_EndTimeHour),
                 "a window that never comes: it ends before it begins, or its day does not exist",
                 "an end behind the start; two windows where it runs past midnight, one up to "
                 "24:00 and one from 0:00 on; a WeekDay from 0 to 7"});
    }

    // The user's plan as it would be with this window alone.
    TimePlanFlex planOf(const ValueList& window) {
        orv::simulation::Tables tables;
        tables.edit(dbm::TimeFrame, {orv::simulation::findShape(dbm::TimeFrame)->newRow(1)});
        tables.edit(dbm::FirmwareUpdateTimePlan, {window});
        const orv::horad::Timeframes frames = readFrames(tables, inquiry_.input.repeatDelay, machine_);
        return !frames.empty() ? *frames.begin()->second->timePlan() : TimePlanFlex();
    }

    bool hasSucceeded(const Timeframe& frame) const {
        return stateIn(inquiry_.household.row(frame.name(), frame.id())) == ServiceState::Succeeded;
    }

    void add(const ValueList& row, const char* column, const std::string& meaning, const std::string& meant) {
        findings_.push_back(
            {rowName(dbm::TimeFrame, idOf(row)), column, valueOf(row, column), meaning, meant});
    }

    Inquiry& inquiry_;
    Findings& findings_;
    Machine machine_;
    int interval_; // seconds
    orv::horad::Timeframes frames_;
};

} // namespace

void findInFrames(Inquiry& inquiry, Findings& findings) {
    FrameFindings(inquiry, findings).find();
}

} // namespace tools::horactl
