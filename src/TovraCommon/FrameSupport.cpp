#include "ProviderFrame.h"

namespace tovra {

std::string nameSpaceOf(const CMPIObjectPath *ref) {
    if (ref == nullptr) return {};
    CMPIString *ns = CMGetNameSpace(ref, nullptr);
    const char *text = ns != nullptr ? CMGetCharsPtr(ns, nullptr) : nullptr;
    return text != nullptr ? text : "";
}

}  // namespace tovra
