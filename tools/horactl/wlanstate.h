#pragma once

#include "simulation/tables.h"

#include <optional>
#include <string>

namespace tools::horactl {

// Why the WLAN is to be as it is, by the rows of the store.
struct WlanState {
    enum class By { AlwaysEnable, Plan, Default };

    bool on = false;     // what "WlanEnable" holds
    bool wanted = false; // what the plans make of it
    By by = By::Default;
    // The row that decides: the plan's, or the first one where the default holds. Nothing without a plan.
    std::optional<velta::ValueList> row;

    // "WlanTimePlans.2", "default" or "AlwaysEnable".
    std::string decides() const;
    // For a person: which plan it is, or why none decides.
    std::string explanation() const;
};

WlanState wlanStateOf(const orv::simulation::Tables& tables);

// "WlanTimePlans.2".
std::string rowName(const std::string& table, int id);
// The same with the row's name behind it, where it has one: "WlanTimePlans.2 Weekend". Printable.
std::string planName(const std::string& table, const velta::ValueList& row);

} // namespace tools::horactl
