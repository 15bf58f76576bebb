// Where tovra-cim finds the MOF, the registration, the provider library and
// the simulator without being told: beside its own executable, either as
// `cmake --install` placed them (<prefix>/bin/tovra-cim) or in the build
// folder it was built in (<build>/host/cli/tovra-cim) with the source tree
// that folder was configured from.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace cimhost::cli {

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

}  // namespace cimhost::cli
