// "Tovra_LogicalIdentity": the port controller and the controller system: one
// adapter seen twice.
#include "AssociationStamp.h"

namespace {

struct LogicalIdentity {
    static constexpr tovra::AssociationDescriptor kAssoc{
        .prefix = "TovraLogicalIdentityProvider",
        .cls = "Tovra_LogicalIdentity",
        .superClass = "CIM_LogicalIdentity",
        .left = {"Tovra_PortController", "SystemElement", "CIM_PortController", nullptr},
        .right = {"Tovra_RAIDControllerSystem", "SameElement", "CIM_ComputerSystem", nullptr},
        .rule = tovra::KeyRule::AllPairs,
    };
    using Ops = tovra::AssociationOps<LogicalIdentity>;
};

}  // namespace

TOVRA_ASSOCIATION_PROVIDER(LogicalIdentity, LogicalIdentity)
