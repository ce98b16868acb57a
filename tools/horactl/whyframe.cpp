#include "tools/horactl/whyframe.h"

#include "handlers/dbm.h"
#include "handlers/timeframedecision.h"
#include "simulation/machine.h"
#include "tools/horactl/frames.h"
#include "tools/horactl/localtime.h"
#include "tools/horactl/settled.h"
#include "tools/horactl/wlanstate.h"
#include "tools/text.h"

#include <algorithm>

namespace tools::horactl {

namespace dbm = orv::horad::dbm;
using orv::horad::ServiceState;
using orv::horad::Timeframe;
using orv::horad::TimeframeObstacle;
using orv::simulation::Machine;
using orv::simulation::Tables;
using velta::ValueList;

namespace {

constexpr std::int64_t secondPass = 4; // seconds behind its start, when horad looks at its frames first

// The conditions, in the order in which horad asks.
enum Name {
    ModeKnown,
    NotSucceeded,
    NotRunning,
    NotOver,
    HasBegun,
    RunLeft,
    Due,
    LineIdle,
    InPlan,
    Startable
};

constexpr const char* conditionNames[] = {
    "mode is known", "not succeeded", "not running", "not over",         "has begun",
    "a run is left", "due",           "line idle",   "user's time plan", "service can be started",
};

Name conditionOf(TimeframeObstacle obstacle) {
    switch (obstacle) {
    case TimeframeObstacle::None:
        return Startable;
    case TimeframeObstacle::Succeeded:
        return NotSucceeded;
    case TimeframeObstacle::Running:
        return NotRunning;
    case TimeframeObstacle::Over:
        return NotOver;
    case TimeframeObstacle::NotBegun:
        return HasBegun;
    case TimeframeObstacle::RunsUsedUp:
        return RunLeft;
    case TimeframeObstacle::NotDue:
        return Due;
    case TimeframeObstacle::LineBusy:
        return LineIdle;
    case TimeframeObstacle::OutsidePlan:
        return InPlan;
    }
    return Startable;
}

// Whether time alone may take it away: a service that runs and what is on the line are taken to go on.
bool passesWithTime(TimeframeObstacle obstacle) {
    switch (obstacle) {
    case TimeframeObstacle::NotBegun:
    case TimeframeObstacle::NotDue:
    case TimeframeObstacle::OutsidePlan:
        return true;
    case TimeframeObstacle::None:
    case TimeframeObstacle::Succeeded:
    case TimeframeObstacle::Running:
    case TimeframeObstacle::Over:
    case TimeframeObstacle::RunsUsedUp:
    case TimeframeObstacle::LineBusy:
        return false;
    }
    return false;
}

std::string textOf(Timeframe::TimePoint moment) {
    return timeForPerson(secondsOf(moment));
}

class Situation : public orv::horad::TimeframeSituation {
public:
    explicit Situation(const Line& line) : idle_(!line.call && !line.stream) {}

    void dueTaken() override {}
    bool isIdle() override { return idle_; }

private:
    bool idle_;
};

std::string lineText(const Line& line) {
    const std::string text = line.call ? "a call runs" : line.stream ? "an IPTV stream runs" : "idle";
    return line.problem.empty() ? text : text + " (" + line.problem + ")";
}

std::vector<Condition> conditionsOf(const Timeframe& frame, ServiceState known,
                                    std::optional<ServiceState> stored, const Line& line,
                                    std::time_t present) {
    const bool waits = frame.mode() == orv::horad::InWindowWhenIdle;
    const std::string mode = "not asked in mode " + std::to_string(frame.mode());
    const bool startable = stored == ServiceState::Idle || stored == ServiceState::Failed;
    const std::string runs = frame.maxRuns() < 0 ? "no limit" : "up to " + std::to_string(frame.maxRuns());
    return {
        {conditionNames[ModeKnown], true, std::to_string(frame.mode()), "1 to 3"},
        {conditionNames[NotSucceeded], known != ServiceState::Succeeded, nameOf(known), ""},
        {conditionNames[NotRunning], known != ServiceState::Running, nameOf(known), ""},
        {conditionNames[NotOver], !frame.isOver(), timeForPerson(present), "until " + textOf(frame.end())},
        {conditionNames[HasBegun], frame.hasBegun(), timeForPerson(present), "from " + textOf(frame.start())},
        {conditionNames[RunLeft], frame.hasRunLeft(), std::to_string(frame.runCounter()) + " counted", runs},
        {conditionNames[Due], frame.executionTimeHasPassed(), timeForPerson(present),
         "behind " + textOf(frame.executionTime())},
        {conditionNames[LineIdle], !waits || (!line.call && !line.stream), waits ? lineText(line) : mode, ""},
        {conditionNames[InPlan], !waits || frame.isInPlan(), waits ? timeForPerson(present) : mode, ""},
        {conditionNames[Startable], startable,
         stored ? nameOf(*stored) : "there is no row " + rowName(frame.name(), frame.id()), "idle or failed"},
    };
}

std::optional<std::time_t> nextStart(const Question& question, const Line& line, const std::string& frame) {
    return Settled(question, line).next([&frame](const Event& event) {
        return event.what == Event::What::Service &&
               std::find(event.rows.begin(), event.rows.end(), frame) != event.rows.end();
    });
}

Explanation leftOut(const std::string& subject, const ValueList& row) {
    Explanation why;
    why.subject = subject;
    why.decides = conditionNames[ModeKnown];
    why.conditions = {
        {conditionNames[ModeKnown], false, row.getValue(dbm::TimeFrame_WindowMode).getText(), "1 to 3"}};
    why.summary = "No start: horad leaves the frame out, since its mode is unknown";
    return why;
}

} // namespace

Explanation explainFrame(const Question& question, int id) {
    const std::string subject = rowName(dbm::TimeFrame, id);
    Tables tables = question.household.inMemory();
    Machine machine((question.present + secondPass) * Machine::second);
    const orv::horad::Timeframes frames = readFrames(tables, question.repeatDelay, machine);
    const auto read = frames.find(id);
    if (read == frames.end())
        return leftOut(subject, *question.household.row(dbm::TimeFrame, id));

    Timeframe& frame = *read->second;
    const Line line = lineOf(question);
    const std::optional<ServiceState> stored = stateIn(question.household.row(frame.name(), frame.id()));
    // Horad follows the states of file transfers only.
    const ServiceState known =
        frame.name() == dbm::FileTransfer ? stored.value_or(ServiceState::Unknown) : ServiceState::Unknown;
    Explanation why;
    why.subject = subject;
    why.conditions = conditionsOf(frame, known, stored, line, machine.time());
    Situation situation(line);
    const TimeframeObstacle obstacle = orv::horad::obstacleOf(frame, known, situation);
    const Condition& last = why.conditions.back();
    why.acts = obstacle == TimeframeObstacle::None && last.met;
    why.decides = conditionNames[conditionOf(obstacle)];
    why.summary = why.acts ? subject + " starts " + printable(rowName(frame.name(), frame.id())) + " now"
                           : "No start: \"" + why.decides + "\" is not met";
    if (passesWithTime(obstacle))
        why.next = nextStart(question, line, subject);
    why.notes = {"a horad that runs already may wait for the frame's next execution time"};
    return why;
}

} // namespace tools::horactl
