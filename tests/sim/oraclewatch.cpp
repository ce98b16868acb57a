#include "sim/oraclewatch.h"

namespace sim {

namespace {

constexpr unsigned settled = 2; // passes after a disturbance
// A reading that failed ten times rests for 29 deliveries after each try.
constexpr unsigned manyFailures = 10;
constexpr unsigned settledAfterMany = 32;

} // namespace

void Watch::violated(const std::string& what) {
    if (!violation_)
        violation_ = atThisMoment(what);
}

void Watch::suspected(const std::string& what) {
    if (!suspicion_)
        suspicion_ = atThisMoment(what);
}

void Watch::suspectedAsRead(const std::string& what) {
    if (!suspicionAsRead_)
        suspicionAsRead_ = atThisMoment(what);
}

void Watch::passed() {
    ++passes_;
    lookForFailures();
    exact_ = isUndisturbed(view.passesSinceFault);
    if (isUndisturbed(view.passesSinceTrouble) && suspicionAsRead_ && !violation_)
        violation_ = suspicionAsRead_;
    if (exact_ && suspicion_ && !violation_)
        violation_ = suspicion_;
    suspicion_.reset();
    suspicionAsRead_.reset();
}

// What the iteration would have been, nobody knows: the power was cut.
void Watch::rebooted() {
    passes_ = 0;
    exact_ = false;
    suspicion_.reset();
    suspicionAsRead_.reset();
    failuresSeen_ = view.failedOperations;
    failingPasses_ = 0;
    passesSinceFailure_ = 0;
}

void Watch::lookForFailures() {
    failed_ = view.failedOperations != failuresSeen_;
    failuresSeen_ = view.failedOperations;
    if (failed_) {
        ++failingPasses_;
        passesSinceFailure_ = 0;
    } else if (++passesSinceFailure_ >= settledAfterMany) {
        failingPasses_ = 0;
    }
}

bool Watch::isUndisturbed(unsigned passesSince) const {
    return passesSince >= settled &&
           passesSinceFailure_ >= (failingPasses_ < manyFailures ? settled : settledAfterMany);
}

std::string Watch::atThisMoment(const std::string& what) const {
    return shown(clock()) + ": " + what;
}

} // namespace sim
