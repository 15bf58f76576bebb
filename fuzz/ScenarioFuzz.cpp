// Fuzz entry for the simulator's scenario JSON: any text is either refused
// with a runtime_error naming the problem, or gives a model that round-trips
// and that the simulated firmware serves.
#include "SimModelSupport.h"

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    tovra::sim::Model model;
    try {
        model = tovra::sim::modelFromJson(nlohmann::json::parse(data, data + size));
    } catch (const nlohmann::json::exception &) {
        return 0;
    } catch (const std::runtime_error &) {
        return 0;
    }
    fuzzsim::checkRoundTrip(model);
    fuzzsim::serveAndRead(std::move(model));
    return 0;
}
