// "Tovra_SystemDeviceSASSATAPort": the controller system and every SAS/SATA
// port.
#include "AssociationStamp.h"

namespace {

struct SystemDeviceSASSATAPort {
    static constexpr tovra::AssociationDescriptor kAssoc{
        .prefix = "TovraSystemDeviceSASSATAPortProvider",
        .cls = "Tovra_SystemDeviceSASSATAPort",
        .superClass = "CIM_SystemDevice",
        .left = {"Tovra_RAIDControllerSystem", "GroupComponent", "CIM_ComputerSystem", nullptr},
        .right = {"Tovra_SASSATAPort", "PartComponent", "CIM_SASSATAPort", nullptr},
        .rule = tovra::KeyRule::AllPairs,
    };
    using Ops = tovra::AssociationOps<SystemDeviceSASSATAPort>;
};

}  // namespace

TOVRA_ASSOCIATION_PROVIDER(SystemDeviceSASSATAPort, SystemDeviceSASSATAPort)
