#include "sim/oraclebounds.h"

#include <algorithm>
#include <string>

#include <malloc.h>

namespace sim {

namespace {

constexpr std::int64_t second = orv::simulation::Machine::second;
constexpr std::int64_t hour = 3600 * second;
constexpr std::int64_t day = 24 * hour;

} // namespace

void BoundsWatch::passed(const Reasons& reasons) {
    ++passes_;
    if (!watch_.isExact())
        ++disturbances_;
    if (reasons.rowsFight)
        ++fights_;
    mostRows_ = std::max(mostRows_, reasons.rows);
    const Microseconds now = watch_.view.machine.passed();
    if (now >= hourEnds_) {
        if (hourEnds_ != 0)
            judgeHour(reasons);
        beginHour(reasons);
    }
    if (now >= nextSample_)
        sampleMemory();
}

void BoundsWatch::beginHour(const Reasons& reasons) {
    hourEnds_ = watch_.view.machine.passed() + hour;
    commits_ = 0;
    passes_ = 0;
    disturbances_ = 0;
    fights_ = 0;
    mostRows_ = reasons.rows;
    edgesBefore_ = reasons.edges;
    runsBefore_ = reasons.runs;
}

// An edge is a commit of the status and one of the WLAN. A run is the commit of its start, and one each time
// its notices are delivered: of the start, and of what came of it. A pass that is disturbed, and one in which
// rows write to each other (C1), may write each row, the WLAN, the services, the reboot. As many passes may
// follow at once: the socket wakes horad. The pace bounds those that it makes itself: runs and fights don't
// count there.
void BoundsWatch::judgeHour(const Reasons& reasons) {
    constexpr std::uint64_t slack = 20;
    constexpr std::uint64_t otherWriters = 4;
    constexpr std::uint64_t idlePasses = 1800;
    constexpr std::uint64_t ownWakeUps = 50;
    const std::uint64_t edges = reasons.edges - edgesBefore_;
    const std::uint64_t ofPass = mostRows_ + otherWriters;
    const std::uint64_t mostCommits =
        slack + 2 * edges + 3 * (reasons.runs - runsBefore_) + (disturbances_ + fights_) * ofPass;
    if (commits_ > mostCommits)
        watch_.violated("at most " + std::to_string(mostCommits) +
                        " commits were expected in the last hour; there were " + std::to_string(commits_));
    const std::uint64_t mostPasses = 2 * (idlePasses + ownWakeUps) + 4 * (edges + disturbances_);
    if (passes_ > mostPasses)
        watch_.violated("at most " + std::to_string(mostPasses) +
                        " iterations were expected in the last hour; there were " + std::to_string(passes_));
}

// Once a simulated day, the same hour: what is in use then is not to grow. Where memory is watched by
// somebody else, a sanitizer, there is nothing to see.
void BoundsWatch::sampleMemory() {
    constexpr unsigned first = 4;
    constexpr std::size_t allowance = 512 * 1024; // bytes: tables grow and shrink
    nextSample_ = watch_.view.machine.passed() + day;
    const std::size_t inUse = mallinfo2().uordblks;
    if (samples_++ < first)
        mostAtFirst_ = std::max(mostAtFirst_, inUse);
    else if (inUse > mostAtFirst_ + allowance)
        watch_.violated("at most " + std::to_string(mostAtFirst_ + allowance) +
                        " bytes of memory were expected to be in use; there are " + std::to_string(inUse));
}

} // namespace sim
