#include "SimulatorLaunch.h"

#include "Wire.h"
#include "tovrasim/ScenarioCatalog.h"

#include <fcntl.h>
#include <link.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <vector>

namespace cimhost::cli {
namespace fs = std::filesystem;
namespace {

std::string env(const char *name) {
    const char *v = std::getenv(name);
    return v != nullptr ? v : "";
}

std::vector<std::string> preloadEntries(const std::string &list) {
    std::vector<std::string> out;
    size_t start = 0;
    while (start <= list.size()) {
        const size_t end = list.find_first_of(": ", start);
        const std::string item = list.substr(start, end == std::string::npos ? std::string::npos : end - start);
        if (!item.empty()) out.push_back(item);
        if (end == std::string::npos) break;
        start = end + 1;
    }
    return out;
}

bool samePath(const std::string &a, const fs::path &b) {
    std::error_code ec;
    return fs::equivalent(a, b, ec);
}

// The path of the first loaded object whose name holds one of `needles`.
std::string loadedObject(std::initializer_list<const char *> needles) {
    struct Search {
        std::initializer_list<const char *> needles;
        std::string found;
    } search{needles, {}};
    dl_iterate_phdr(
        [](dl_phdr_info *info, size_t, void *data) {
            auto *s = static_cast<Search *>(data);
            const char *name = info->dlpi_name != nullptr ? info->dlpi_name : "";
            for (const char *needle : s->needles)
                if (std::strstr(name, needle) != nullptr) {
                    s->found = name;
                    return 1;
                }
            return 0;
        },
        &search);
    return search.found;
}

// A sanitizer build's runtime must come first in the preload list.
std::string sanitizerRuntime() { return loadedObject({"/libasan.so", "/libtsan.so"}); }

// Whether the simulator serves the device calls (it interposes them when loaded).
bool simulated() { return !loadedObject({"/libtovrasim.so"}).empty(); }

}  // namespace

std::string runUnderSimulator(const Installation *found, const std::string &scenario, char **argv) {
    std::error_code ec;
    if (found == nullptr || !fs::is_regular_file(found->simulator, ec))
        return "--simulate: no simulator library (libtovrasim.so) found beside " + executablePath().string();
    std::string wanted = scenario;
    if (wanted.empty()) wanted = env("TOVRA_SIM_SCENARIO");
    if (wanted.empty()) wanted = "default";
    // The simulator serves "default" for a scenario it cannot find, as it
    // must for a process that cannot be asked; asked here, say so instead.
    std::string scenarioDir = env("TOVRA_SIM_SCENARIO_DIR");
    if (scenarioDir.empty() && fs::is_directory(found->scenarioDir, ec)) scenarioDir = found->scenarioDir.string();
    if (std::string problem = tovra::scenarios::problem(wanted, scenarioDir); !problem.empty()) return problem;
    const std::vector<std::string> preloaded = preloadEntries(env("LD_PRELOAD"));
    bool loaded = false;
    for (const std::string &p : preloaded) loaded = loaded || samePath(p, found->simulator);
    if (loaded && env("TOVRA_SIM_SCENARIO") == wanted) return "";

    std::string preload;
    const std::string runtime = sanitizerRuntime();
    if (!runtime.empty()) preload = runtime + ":";
    preload += found->simulator.string();
    for (const std::string &p : preloaded)
        if (!samePath(p, found->simulator) && p != runtime) preload += ":" + p;
    setenv("LD_PRELOAD", preload.c_str(), 1);
    setenv("TOVRA_SIM_SCENARIO", wanted.c_str(), 1);
    if (!scenarioDir.empty()) setenv("TOVRA_SIM_SCENARIO_DIR", scenarioDir.c_str(), 1);
    if (runtime.find("/libasan.so") != std::string::npos &&
        env("ASAN_OPTIONS").find("verify_asan_link_order") == std::string::npos) {
        const std::string options = env("ASAN_OPTIONS");
        setenv("ASAN_OPTIONS", (options + (options.empty() ? "" : ":") + "verify_asan_link_order=0").c_str(), 1);
    }
    execv("/proc/self/exe", argv);
    return std::string("--simulate: cannot run again under the simulator: ") + std::strerror(errno);
}

bool deviceOpenFailed(const Reply &reply) {
    return reply.rc == CMPI_RC_ERROR_SYSTEM || reply.message.find("File Open Failed.") != std::string::npos;
}

std::string deviceProblem() {
    const std::string path = tovra::wire::kDevicePath;
    const int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (fd >= 0) {
        ::close(fd);
        return "";
    }
    const int error = errno;
    if (error == ENOENT && !simulated())
        return "no adapter device at " + path + "; use --simulate to try the simulator";
    return std::string("cannot open the ") + (simulated() ? "simulated " : "") + "adapter device " + path + ": " +
           std::strerror(error);
}

}  // namespace cimhost::cli
