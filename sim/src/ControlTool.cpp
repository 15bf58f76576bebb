// tovra-sim: changes the simulated adapter that other processes share through
// TOVRA_SIM_STATE, as a running adapter changes (see controlUsage()).
#include <iostream>
#include <stdexcept>

#include "tovrasim/Simulator.h"

int main(int argc, char **argv) {
    const std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty() || args[0] == "-h" || args[0] == "--help") {
        std::cout << tovra::sim::controlUsage();
        return args.empty() ? 2 : 0;
    }
    try {
        std::cout << tovra::sim::runControl(args) << '\n';
        return 0;
    } catch (const std::exception &e) {
        std::cerr << "tovra-sim: " << e.what() << '\n' << tovra::sim::controlUsage();
        return 2;
    }
}
