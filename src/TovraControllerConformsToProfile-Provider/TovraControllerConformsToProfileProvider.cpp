// "Tovra_ControllerConformsToProfile": the port controller conforms to the
// registered profile. The profile lives in the interop namespace, so the
// associator and enumerate operations look for each end in its own namespace.
// Kept as they are: the associators do not fetch the source, the enumerated
// names take the request's namespace, a failed inner enumeration skips to the
// next profile, and the association table's cleanup is AssociationCleanup.
#include "AssociationStamp.h"

namespace {

struct ControllerConformsToProfile {
    static constexpr tovra::AssociationDescriptor kAssoc{
        .prefix = "TovraControllerConformsToProfileProvider",
        .cls = "Tovra_ControllerConformsToProfile",
        .superClass = "CIM_ElementConformsToProfile",
        .left = {"Tovra_PortController", "ManagedElement", "CIM_PortController", nullptr, tovra::TovraNameSpace},
        .right = {"Tovra_RegisteredProfile", "ConformantStandard", "CIM_RegisteredProfile", nullptr,
                  tovra::InteropNameSpace},
        .rule = tovra::KeyRule::AllPairs,
        .associatorsFetchSource = false,
        .namesInRequestNameSpace = true,
        .tolerantInnerLoop = true,
        .associationCleanup = true,
    };
    using Ops = tovra::AssociationOps<ControllerConformsToProfile>;
};

}  // namespace

TOVRA_ASSOCIATION_PROVIDER(ControllerConformsToProfile, ControllerConformsToProfile)
