#include "StateFile.h"

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "ScenarioIO.h"

namespace tovra::sim {

SavedState parseStateText(const std::string &text, const std::string &origin) {
    try {
        const auto j = nlohmann::json::parse(text);
        // Compared as JSON: a version too large for any integer is just another version.
        if (!j.is_object() || !j.contains("version") || j.at("version") != kStateFileVersion)
            throw std::runtime_error("state file " + origin + " has another version");
        return SavedState{modelFromJson(j.at("model")), j.value("scenario", std::string())};
    } catch (const nlohmann::json::exception &e) {
        throw std::runtime_error("state file " + origin + ": " + e.what());
    }
}

std::optional<SavedState> readStateFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    std::ostringstream text;
    text << in.rdbuf();
    return parseStateText(text.str(), path);
}

void writeStateFile(const std::string &path, const Model &model, const std::string &scenario) {
    nlohmann::json j;
    j["version"] = kStateFileVersion;
    j["scenario"] = scenario;
    j["model"] = modelToJson(model);
    const std::string tmp = path + ".tmp." + std::to_string(getpid());
    {
        std::ofstream out(tmp, std::ios::binary | std::ios::trunc);
        out << j.dump(1) << '\n';
        out.flush();
        if (!out) {
            std::remove(tmp.c_str());
            throw std::runtime_error("cannot write " + tmp);
        }
    }
    if (std::rename(tmp.c_str(), path.c_str()) != 0) {
        std::remove(tmp.c_str());
        throw std::runtime_error("cannot rename " + tmp + " to " + path);
    }
}

}  // namespace tovra::sim
