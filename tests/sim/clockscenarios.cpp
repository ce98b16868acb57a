#include "sim/scenario.h"
namespace sim {
std::vector<Scenario> clockScenarios() {
    return {};
}
std::vector<Scenario> rebootScenarios() {
    return {};
}
std::vector<Scenario> planScenarios() {
    return {};
}
std::vector<Scenario> storeScenarios() {
    return {};
}
} // namespace sim
