// "Tovra_SystemPackaging": the controller system and every chassis.
#include "AssociationStamp.h"

namespace {

struct SystemPackaging {
    static constexpr tovra::AssociationDescriptor kAssoc{
        .prefix = "TovraSystemPackagingProvider",
        .cls = "Tovra_SystemPackaging",
        .superClass = "CIM_SystemPackaging",
        .left = {"Tovra_RAIDControllerSystem", "Antecedent", "CIM_ComputerSystem", nullptr},
        .right = {"Tovra_Chassis", "Dependent", "CIM_Chassis", nullptr},
        .rule = tovra::KeyRule::AllPairs,
    };
    using Ops = tovra::AssociationOps<SystemPackaging>;
};

}  // namespace

TOVRA_ASSOCIATION_PROVIDER(SystemPackaging, SystemPackaging)
