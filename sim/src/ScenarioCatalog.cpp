#include "tovrasim/ScenarioCatalog.h"

#include <algorithm>
#include <filesystem>
#include <sstream>

namespace tovra::scenarios {
namespace fs = std::filesystem;
namespace {

std::vector<std::string> folders(const std::string &scenarioDir) {
    std::vector<std::string> out;
    if (!scenarioDir.empty()) out.push_back(scenarioDir);
    out.emplace_back(TOVRASIM_SOURCE_SCENARIOS);
    return out;
}

std::string joined(const std::vector<std::string> &items) {
    std::string out;
    for (const std::string &item : items) out += (out.empty() ? "" : ", ") + item;
    return out;
}

}  // namespace

bool isPath(const std::string &nameOrPath) {
    return nameOrPath.find('/') != std::string::npos || (nameOrPath.size() > 5 && nameOrPath.ends_with(".json"));
}

const std::vector<std::string> &builtIn() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> out;
        std::istringstream list(TOVRASIM_BUILT_IN_SCENARIOS);
        for (std::string name; std::getline(list, name, ',');) out.push_back(name);
        return out;
    }();
    return names;
}

bool isBuiltIn(const std::string &name) { return std::ranges::find(builtIn(), name) != builtIn().end(); }

std::optional<std::string> fileFor(const std::string &name, const std::string &scenarioDir) {
    std::error_code ec;
    for (const std::string &folder : folders(scenarioDir)) {
        const fs::path file = fs::path(folder) / (name + ".json");
        if (fs::is_regular_file(file, ec)) return file.string();
    }
    return std::nullopt;
}

std::vector<std::string> fileNames(const std::string &scenarioDir) {
    std::vector<std::string> names;
    for (const std::string &folder : folders(scenarioDir)) {
        std::error_code ec;
        for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
            const fs::path &file = it->path();
            if (file.extension() != ".json" || !it->is_regular_file(ec)) continue;
            const std::string name = file.stem().string();
            if (!isBuiltIn(name) && !isPath(name)) names.push_back(name);
        }
    }
    std::ranges::sort(names);
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
}

std::string problem(const std::string &nameOrPath, const std::string &scenarioDir) {
    std::error_code ec;
    if (isPath(nameOrPath))
        return fs::is_regular_file(nameOrPath, ec) ? "" : "no scenario file " + nameOrPath;
    if (isBuiltIn(nameOrPath) || fileFor(nameOrPath, scenarioDir)) return "";
    std::string text = "no scenario \"" + nameOrPath + "\"; built in: " + joined(builtIn());
    if (const std::vector<std::string> files = fileNames(scenarioDir); !files.empty())
        text += "; files: " + joined(files);
    return text;
}

}  // namespace tovra::scenarios
