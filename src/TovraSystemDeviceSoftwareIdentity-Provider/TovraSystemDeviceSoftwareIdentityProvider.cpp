// "Tovra_SystemDeviceSoftwareIdentity": the controller system and every
// software identity, under the system-device association (kept so).
#include "AssociationStamp.h"

namespace {

struct SystemDeviceSoftwareIdentity {
    static constexpr tovra::AssociationDescriptor kAssoc{
        .prefix = "TovraSystemDeviceSoftwareIdentityProvider",
        .cls = "Tovra_SystemDeviceSoftwareIdentity",
        .superClass = "CIM_SystemDevice",
        .left = {"Tovra_RAIDControllerSystem", "GroupComponent", "CIM_ComputerSystem", nullptr},
        .right = {"Tovra_SoftwareIdentity", "PartComponent", "CIM_SoftwareIdentity", nullptr},
        .rule = tovra::KeyRule::AllPairs,
    };
    using Ops = tovra::AssociationOps<SystemDeviceSoftwareIdentity>;
};

}  // namespace

TOVRA_ASSOCIATION_PROVIDER(SystemDeviceSoftwareIdentity, SystemDeviceSoftwareIdentity)
