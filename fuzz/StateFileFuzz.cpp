// Fuzz entry for the simulator's state file: any text is either refused with
// a runtime_error, or gives a model that round-trips and is served.
#include "SimModelSupport.h"
#include "StateFile.h"

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    tovra::sim::SavedState saved;
    try {
        saved = tovra::sim::parseStateText(std::string(reinterpret_cast<const char *>(data), size), "fuzz.json");
    } catch (const std::runtime_error &) {
        return 0;
    }
    fuzzsim::checkRoundTrip(saved.model);
    fuzzsim::serveAndRead(std::move(saved.model));
    return 0;
}
