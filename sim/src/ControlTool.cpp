// tovra-sim: changes the simulated adapter that other processes share through
// TOVRA_SIM_STATE, as a running adapter changes (see controlUsage()), and
// writes firmware images the simulated adapter accepts.
#include <fstream>
#include <iostream>
#include <stdexcept>

#include "tovrasim/FirmwareImage.h"
#include "tovrasim/Simulator.h"

namespace {

constexpr const char *kImageUsage =
    "  firmware-image FILE VERSION  writes an image UpdateFirmware accepts (VERSION: at most 16 characters)\n";

std::string usage() { return tovra::sim::controlUsage() + kImageUsage; }

std::string writeImage(const std::vector<std::string> &args) {
    if (args.size() != 3) throw std::invalid_argument("firmware-image: wrong number of arguments");
    if (args[2].empty() || args[2].size() > 16)
        throw std::invalid_argument("firmware-image: VERSION must be 1 to 16 characters");
    const std::vector<uint8_t> image = tovra::sim::makeFirmwareImage(args[2], 4096);
    std::ofstream out(args[1], std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char *>(image.data()), static_cast<std::streamsize>(image.size()));
    if (!out.flush()) throw std::runtime_error("firmware-image: cannot write " + args[1]);
    return "wrote " + args[1] + ": firmware " + args[2] + ", " + std::to_string(image.size()) + " bytes";
}

}  // namespace

int main(int argc, char **argv) {
    const std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty() || args[0] == "-h" || args[0] == "--help") {
        std::cout << usage();
        return args.empty() ? 2 : 0;
    }
    try {
        std::cout << (args[0] == "firmware-image" ? writeImage(args) : tovra::sim::runControl(args)) << '\n';
        return 0;
    } catch (const std::exception &e) {
        std::cerr << "tovra-sim: " << e.what() << '\n' << usage();
        return 2;
    }
}
