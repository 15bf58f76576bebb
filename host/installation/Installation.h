// Where tovra-cim and tovra-cimd find the MOF, the registration, the provider
// library and the simulator without being told: relative to their own
// executable, either as `cmake --install` placed them (<prefix>/bin) or in the
// build folder they were built in (any folder below the one holding
// CMakeCache.txt), with the source tree that folder was configured from.
#pragma once

#include "HostOptions.h"

#include <filesystem>
#include <optional>
#include <string>

namespace cimhost {

struct Installation {
    std::string origin;  // "installed" or "build tree"
    std::filesystem::path mofDir;
    std::filesystem::path registration;
    std::filesystem::path providerDir;
    std::filesystem::path simulator;    // libtovrasim.so (may be missing when installed without it)
    std::filesystem::path scenarioDir;  // the simulator's scenario files
};

// The running executable, from /proc/self/exe.
std::filesystem::path executablePath();

// The first layout whose files exist around `executableDir`.
std::optional<Installation> locateInstallation(const std::filesystem::path &executableDir);

// Path options the user left out take what was found.
void applyInstallation(HostOptions &options, const Installation &found);

}  // namespace cimhost
