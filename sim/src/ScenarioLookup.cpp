// Finding a scenario by name (built in, TOVRA_SIM_SCENARIO_DIR, the source
// scenarios folder) or by path.
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "JsonFields.h"
#include "ScenarioIO.h"

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

bool fileExists(const std::string &path) { return std::ifstream(path).good(); }

}  // namespace

std::string scenarioText(const std::string &nameOrPath, const std::string &scenarioDir) {
    const bool isPath = nameOrPath.find('/') != std::string::npos ||
                        (nameOrPath.size() > 5 && nameOrPath.ends_with(".json"));
    if (isPath) return readFile(nameOrPath);
    if (const char *embedded = embeddedScenario(nameOrPath)) return embedded;
    if (!scenarioDir.empty()) {
        const std::string p = scenarioDir + "/" + nameOrPath + ".json";
        if (fileExists(p)) return readFile(p);
    }
    const std::string p = std::string(TOVRASIM_SOURCE_SCENARIOS) + "/" + nameOrPath + ".json";
    if (fileExists(p)) return readFile(p);
    fail("no scenario named \"" + nameOrPath + "\"");
}

Model loadScenarioModel(const std::string &nameOrPath, const std::string &scenarioDir) {
    try {
        return modelFromJson(nlohmann::json::parse(scenarioText(nameOrPath, scenarioDir)));
    } catch (const nlohmann::json::exception &e) {
        fail("scenario \"" + nameOrPath + "\": " + e.what());
    } catch (const std::runtime_error &e) {
        fail("scenario \"" + nameOrPath + "\": " + e.what());
    }
}

}  // namespace tovra::sim
