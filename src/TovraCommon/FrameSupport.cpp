#include "ProviderFrame.h"

namespace tovra {

std::string nameSpaceOf(const CMPIObjectPath *ref) {
    if (ref == nullptr) return {};
    CMPIString *ns = CMGetNameSpace(ref, nullptr);
    const char *text = ns != nullptr ? CMGetCharsPtr(ns, nullptr) : nullptr;
    return text != nullptr ? text : "";
}

namespace {

CMPIResult *noClone(const CMPIResult *, CMPIStatus *rc) {
    if (rc != nullptr) *rc = makeStatus(CMPI_RC_ERR_NOT_SUPPORTED);
    return nullptr;
}
CMPIStatus release(CMPIResult *) { return okStatus(); }
CMPIStatus data(const CMPIResult *, const CMPIValue *, const CMPIType) { return okStatus(); }
CMPIStatus instance(const CMPIResult *, const CMPIInstance *) { return okStatus(); }
CMPIStatus path(const CMPIResult *, const CMPIObjectPath *) { return okStatus(); }
CMPIStatus done(const CMPIResult *) { return okStatus(); }
CMPIStatus error(const CMPIResult *, const CMPIError *) { return okStatus(); }

CMPIResultFT discardingFT{CMPICurrentVersion, release, noClone, data, instance, path, done, error};
CMPIResult discarding{nullptr, &discardingFT};

}  // namespace

const CMPIResult *discardingResult() { return &discarding; }

}  // namespace tovra
