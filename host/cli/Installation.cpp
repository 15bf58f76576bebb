#include "Installation.h"

#include <fstream>

namespace cimhost::cli {
namespace fs = std::filesystem;
namespace {

// The source tree a build folder was configured from, as its cache records it.
std::optional<fs::path> configuredSource(const fs::path &build) {
    std::ifstream cache(build / "CMakeCache.txt");
    const std::string key = "CMAKE_HOME_DIRECTORY:INTERNAL=";
    for (std::string line; std::getline(cache, line);)
        if (line.starts_with(key)) return fs::path(line.substr(key.size()));
    return std::nullopt;
}

std::optional<Installation> installed(const fs::path &exeDir) {
    // <prefix>/<bindir>/tovra-cim
    const fs::path prefix = (exeDir / TOVRA_INSTALL_PREFIX_FROM_BIN).lexically_normal();
    const fs::path data = prefix / TOVRA_INSTALL_DATADIR;
    return Installation{"installed",
                        data,
                        data / "Tovra.reg",
                        prefix / TOVRA_INSTALL_PROVIDERDIR,
                        prefix / TOVRA_INSTALL_SIMDIR / "libtovrasim.so",
                        data / "scenarios"};
}

std::optional<Installation> buildTree(const fs::path &exeDir) {
    // <build>/host/cli/tovra-cim; the MOF stays in the source tree.
    const fs::path build = (exeDir / TOVRA_BUILD_ROOT_FROM_CLI).lexically_normal();
    const std::optional<fs::path> source = configuredSource(build);
    if (!source) return std::nullopt;
    return Installation{"build tree",
                        *source / "mof",
                        *source / "mof" / "Tovra.reg",
                        build / TOVRA_BUILD_PROVIDERDIR,
                        build / TOVRA_BUILD_SIMDIR / "libtovrasim.so",
                        *source / "sim" / "scenarios"};
}

bool complete(const Installation &i) {
    std::error_code ec;
    return fs::is_directory(i.mofDir, ec) && fs::is_regular_file(i.registration, ec) &&
           fs::is_regular_file(i.providerDir / "libTovraProviders.so", ec);
}

}  // namespace

fs::path executablePath() {
    std::error_code ec;
    return fs::read_symlink("/proc/self/exe", ec);
}

std::optional<Installation> locateInstallation(const fs::path &executableDir) {
    for (auto candidate : {installed, buildTree}) {
        const std::optional<Installation> found = candidate(executableDir);
        if (found && complete(*found)) return found;
    }
    return std::nullopt;
}

}  // namespace cimhost::cli
