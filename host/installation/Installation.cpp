#include "Installation.h"

#include <fstream>

namespace cimhost {
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
    // <prefix>/<bindir>/<program>
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
    // <build>/host/cli/tovra-cim, <build>/host/server/tovra-cimd: the nearest
    // folder above with a CMake cache. The MOF stays in the source tree.
    std::error_code ec;
    for (fs::path build = exeDir.lexically_normal(); !build.empty(); build = build.parent_path()) {
        if (fs::is_regular_file(build / "CMakeCache.txt", ec)) {
            const std::optional<fs::path> source = configuredSource(build);
            if (!source) return std::nullopt;
            return Installation{"build tree",
                                *source / "mof",
                                *source / "mof" / "Tovra.reg",
                                build / TOVRA_BUILD_PROVIDERDIR,
                                build / TOVRA_BUILD_SIMDIR / "libtovrasim.so",
                                *source / "sim" / "scenarios"};
        }
        if (build == build.root_path()) break;
    }
    return std::nullopt;
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

void applyInstallation(HostOptions &options, const Installation &found) {
    if (options.mofPaths.empty()) options.mofPaths = {found.mofDir.string()};
    if (options.registrationFile.empty()) options.registrationFile = found.registration.string();
    if (options.providerDirs.empty()) options.providerDirs = {found.providerDir.string()};
}

}  // namespace cimhost
