// Scenario and state files: JSON to model and back, and finding a scenario by
// name (embedded, TOVRA_SIM_SCENARIO_DIR, the source scenarios folder) or path.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "tovrasim/Model.h"

namespace tovra::sim {

inline constexpr int kStateFileVersion = 1;

// Throws std::runtime_error naming the offending field.
Model modelFromJson(const nlohmann::json &j);
nlohmann::json modelToJson(const Model &m);

// The JSON text of a scenario; throws std::runtime_error when it cannot be found.
// scenarioDir is the TOVRA_SIM_SCENARIO_DIR value read at start (may be empty).
std::string scenarioText(const std::string &nameOrPath, const std::string &scenarioDir);
Model loadScenarioModel(const std::string &nameOrPath, const std::string &scenarioDir);

// Embedded scenarios (generated at build time); null when the name is not embedded.
const char *embeddedScenario(const std::string &name);

}  // namespace tovra::sim
