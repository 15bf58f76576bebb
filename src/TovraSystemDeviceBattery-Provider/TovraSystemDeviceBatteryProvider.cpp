// "Tovra_SystemDeviceBattery": the controller system and its battery.
// GetInstance ends silently on a null reference.
#include "AssociationStamp.h"

namespace {

struct SystemDeviceBattery {
    static constexpr tovra::AssociationDescriptor kAssoc{
        .prefix = "TovraSystemDeviceBatteryProvider",
        .cls = "Tovra_SystemDeviceBattery",
        .superClass = "CIM_SystemDevice",
        .left = {"Tovra_RAIDControllerSystem", "GroupComponent", "CIM_ComputerSystem", nullptr},
        .right = {"Tovra_Battery", "PartComponent", "CIM_Battery", nullptr},
        .rule = tovra::KeyRule::AllPairs,
        .reportNullReference = false,
    };
    using Ops = tovra::AssociationOps<SystemDeviceBattery>;
};

}  // namespace

TOVRA_ASSOCIATION_PROVIDER(SystemDeviceBattery, SystemDeviceBattery)
