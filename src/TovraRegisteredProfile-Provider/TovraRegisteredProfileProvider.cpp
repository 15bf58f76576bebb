// "Tovra_RegisteredProfile" in the interop namespace: the one registration of
// the profile this library implements. Built from constants on every request:
// no cache, no device.
#include "ModuleStamp.h"

#include <cstring>

namespace {

constexpr const char *kInstanceID = "Tovra: Host Hardware RAID Controller_1.2.0";
constexpr CMPIUint16 regOrg = 1;
constexpr CMPIUint16 advertisedType = 3;

struct RegisteredProfile {
    static constexpr const char *kPrefix = "TovraRegisteredProfileProvider";
    static constexpr const char *kClass = "Tovra_RegisteredProfile";
    static constexpr const char *kSuperClass = "CIM_RegisteredProfile";
    static inline const char *kKeys[] = {"InstanceID", nullptr};

    struct Ops;
};

using tovra::makeStatus;
using tovra::okStatus;
using tovra::opName;
using S = tovra::ModuleState<RegisteredProfile>;

CMPIObjectPath *profilePath(const CMPIObjectPath *ref) {
    CMPIObjectPath *op =
        CMNewObjectPath(S::_TovraBroker, tovra::nameSpaceOf(ref).c_str(), RegisteredProfile::kClass, nullptr);
    if (op != nullptr) tovra::KeyWriter(op).str("InstanceID", kInstanceID);
    return op;
}

struct RegisteredProfile::Ops : tovra::CommonOps<RegisteredProfile> {
    static CMPIStatus enumInstanceNames(const CMPIContext *, const CMPIResult *rslt, const CMPIObjectPath *ref) {
        if (CMPIObjectPath *op = profilePath(ref)) CMReturnObjectPath(rslt, op);
        CMReturnDone(rslt);
        return okStatus();
    }

    static CMPIStatus enumInstances(const CMPIContext *, const CMPIResult *rslt, const CMPIObjectPath *ref,
                                    const char **properties) {
        CMPIObjectPath *op = profilePath(ref);
        CMPIInstance *inst = op != nullptr ? CMNewInstance(S::_TovraBroker, op, nullptr) : nullptr;
        if (inst != nullptr) {
            CMSetPropertyFilter(inst, properties, kKeys);
            tovra::PropertyWriter p(S::_TovraBroker, inst);
            p.str("InstanceID", kInstanceID);
            p.u16("RegisteredOrganization", regOrg);
            p.str("RegisteredName", "Host Hardware RAID Controller");
            p.str("RegisteredVersion", "1.2.0");
            p.u16Array("AdvertiseTypes", {advertisedType});
            CMReturnInstance(rslt, inst);
        }
        CMReturnDone(rslt);
        return okStatus();
    }

    // Get carries the key property only; the other properties come with
    // enumeration alone.
    static CMPIStatus getInstance(const CMPIContext *, const CMPIResult *rslt, const CMPIObjectPath *ref,
                                  const char **properties) {
        const char *op = "GetInstance";
        CMPIStatus st = okStatus();
        if (!classMatches(ref, op)) {
            st = makeStatus(CMPI_RC_ERR_FAILED);
        } else {
            CMPIStatus keySt = okStatus();
            const char *id = tovra::stringOf(CMGetKey(ref, "InstanceID", &keySt));
            if (keySt.rc != CMPI_RC_OK || id == nullptr) {
                tovra::logAlert("%s: CMPI_RC_ERR_FAILED\n", opName(kPrefix, op).c_str());
                st = makeStatus(CMPI_RC_ERR_FAILED);
            } else if (std::strcmp(id, kInstanceID) != 0) {
                st = makeStatus(CMPI_RC_ERR_NOT_FOUND);
            } else {
                CMPIObjectPath *path = CMNewObjectPath(S::_TovraBroker, "", kClass, &st);
                if (path != nullptr) {
                    CMSetNameSpaceFromObjectPath(path, ref);
                    CMPIInstance *inst = CMNewInstance(S::_TovraBroker, path, &st);
                    if (inst != nullptr) {
                        CMSetPropertyFilter(inst, properties, kKeys);
                        tovra::PropertyWriter(S::_TovraBroker, inst).str("InstanceID", kInstanceID);
                        CMReturnInstance(rslt, inst);
                    }
                }
            }
        }
        return finish(rslt, op, st);
    }
};

}  // namespace

TOVRA_INSTANCE_PROVIDER(RegisteredProfile, RegisteredProfile)
