#include "cfg/pace.h"

#include <utility>

namespace orv::cfg {

void Pace::beginIteration(bool noticed) {
    if (noticed) {
        quietIterations_ = 0;
        if (std::exchange(hasCommitted_, false) && wakeUpsLeft_ > 0)
            --wakeUpsLeft_;
    } else if (++quietIterations_ >= iterationsAtRest) {
        quietIterations_ = 0;
        wakeUpsLeft_ = wakeUps;
    }
}

} // namespace orv::cfg
