#pragma once

#include "sim/household.h"
#include "sim/oracle.h"

namespace sim {

// The oracle, as a household's observer.
class Watched : public Observer {
public:
    // The household outlives it.
    explicit Watched(const Household& household) : oracle_(household.view()) {}

    void booted() override { oracle_.rebooted(); }
    void committed(const Tables::Changes& changes) override { oracle_.committed(changes); }
    void passed() override { oracle_.passed(); }
    const std::optional<std::string>& violation() const override { return oracle_.violation(); }

private:
    Oracle oracle_;
};

} // namespace sim
