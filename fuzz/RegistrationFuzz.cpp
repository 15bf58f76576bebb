// Fuzz entry for the host's provider registration reader: any text either
// gives entries that carry every required field, or is refused with a
// RegistrationError.
#include "Registration.h"

#include <sstream>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::istringstream in(std::string(reinterpret_cast<const char *>(data), size));
    try {
        for (const cimhost::RegistrationEntry &e : cimhost::parseRegistration(in, "fuzz.reg"))
            if (e.className.empty() || e.providerName.empty() || e.location.empty() || e.kinds.empty() ||
                e.namespaces.empty())
                __builtin_trap();
    } catch (const cimhost::RegistrationError &) {
    }
    return 0;
}
