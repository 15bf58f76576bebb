// How the simulator finds a scenario: a value holding '/' or ending in ".json"
// is a path; a name is one of the built-in scenarios, else <name>.json in the
// scenario folder (TOVRA_SIM_SCENARIO_DIR), else in the source scenarios
// folder. Shared with programs that check a name before they preload the
// simulator.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tovra::scenarios {

bool isPath(const std::string &nameOrPath);

// The names embedded in the simulator library.
const std::vector<std::string> &builtIn();
bool isBuiltIn(const std::string &name);

// The file a name that is not built in stands for; nullopt when there is none.
std::optional<std::string> fileFor(const std::string &name, const std::string &scenarioDir);

// The names the folders offer as files, sorted, built-in ones left out.
std::vector<std::string> fileNames(const std::string &scenarioDir);

// "" when the lookup finds `nameOrPath`; otherwise what is wrong, naming what
// there is: no scenario "fulll"; built in: default, full; files: bare, edge.
std::string problem(const std::string &nameOrPath, const std::string &scenarioDir);

}  // namespace tovra::scenarios
