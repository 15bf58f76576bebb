// "Tovra_ComputerSystemSoftwareIdentity": the adapter's software: an identity
// whose id contains the controller's name.
#include "AssociationStamp.h"

namespace {

struct ComputerSystemSoftwareIdentity {
    static constexpr tovra::AssociationDescriptor kAssoc{
        .prefix = "TovraComputerSystemSoftwareIdentityProvider",
        .cls = "Tovra_ComputerSystemSoftwareIdentity",
        .superClass = "CIM_ElementSoftwareIdentity",
        .left = {"Tovra_SoftwareIdentity", "Antecedent", "CIM_SoftwareIdentity", "InstanceID"},
        .right = {"Tovra_RAIDControllerSystem", "Dependent", "CIM_ComputerSystem", "Name"},
        .rule = tovra::KeyRule::LeftContainsRight,
    };
    using Ops = tovra::AssociationOps<ComputerSystemSoftwareIdentity>;
};

}  // namespace

TOVRA_ASSOCIATION_PROVIDER(ComputerSystemSoftwareIdentity, ComputerSystemSoftwareIdentity)
