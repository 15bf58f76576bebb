// Finding a scenario by name (built in, TOVRA_SIM_SCENARIO_DIR, the source
// scenarios folder) or by path.
#include <fstream>
#include <optional>
#include <sstream>
#include <stdexcept>

#include "JsonFields.h"
#include "ScenarioIO.h"
#include "tovrasim/ScenarioCatalog.h"

namespace tovra::sim {

namespace {

using jsonfields::fail;

std::string readFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) fail("cannot read " + path);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

}  // namespace

std::string scenarioText(const std::string &nameOrPath, const std::string &scenarioDir) {
    if (scenarios::isPath(nameOrPath)) return readFile(nameOrPath);
    if (const char *embedded = embeddedScenario(nameOrPath)) return embedded;
    if (const std::optional<std::string> file = scenarios::fileFor(nameOrPath, scenarioDir)) return readFile(*file);
    fail(scenarios::problem(nameOrPath, scenarioDir));
}

Model loadScenarioModel(const std::string &nameOrPath, const std::string &scenarioDir) {
    const std::string text = scenarioText(nameOrPath, scenarioDir);  // its failure names the scenario
    try {
        return modelFromJson(nlohmann::json::parse(text));
    } catch (const nlohmann::json::exception &e) {
        fail("scenario \"" + nameOrPath + "\": " + e.what());
    } catch (const std::runtime_error &e) {
        fail("scenario \"" + nameOrPath + "\": " + e.what());
    }
}

}  // namespace tovra::sim
