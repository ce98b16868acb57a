#pragma once

#include "sim/household.h"

namespace sim {

// Sees nothing wrong.
class Unwatched : public Observer {
public:
    const std::optional<std::string>& violation() const override { return none_; }

private:
    std::optional<std::string> none_;
};

} // namespace sim
