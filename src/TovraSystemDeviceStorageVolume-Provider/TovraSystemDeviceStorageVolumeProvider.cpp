// "Tovra_SystemDeviceStorageVolume": the controller system and every storage
// volume.
#include "AssociationStamp.h"

namespace {

struct SystemDeviceStorageVolume {
    static constexpr tovra::AssociationDescriptor kAssoc{
        .prefix = "TovraSystemDeviceStorageVolumeProvider",
        .cls = "Tovra_SystemDeviceStorageVolume",
        .superClass = "CIM_SystemDevice",
        .left = {"Tovra_RAIDControllerSystem", "GroupComponent", "CIM_ComputerSystem", nullptr},
        .right = {"Tovra_StorageVolume", "PartComponent", "CIM_StorageVolume", nullptr},
        .rule = tovra::KeyRule::AllPairs,
    };
    using Ops = tovra::AssociationOps<SystemDeviceStorageVolume>;
};

}  // namespace

TOVRA_ASSOCIATION_PROVIDER(SystemDeviceStorageVolume, SystemDeviceStorageVolume)
