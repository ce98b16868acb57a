#pragma once

#include "timeplan/localmoment.h"

#include <ctime>
#include <optional>

namespace orv::horad {

// Local time for a caller that asks every few seconds. Within a minute of local time neither the day nor the
// offset changes, so the C library is asked once a minute: asking it each time would cost an idle daemon more
// than everything else. A changed time zone counts from the next minute on, or as soon as tzset() was called.
class LocalClock {
public:
    // Nothing where the C library can't convert it.
    std::optional<LocalMoment> at(std::time_t seconds);

private:
    void convert(std::time_t seconds);
    bool isInConvertedMinute(std::time_t seconds) const;

    std::optional<LocalMoment> converted_;
    std::time_t convertedAt_ = 0; // seconds since the epoch
    long zoneOffset_ = 0;         // of the time zone at that time, as tzset() has set it
    const char* zoneName_ = nullptr;
};

} // namespace orv::horad
