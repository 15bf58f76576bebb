// "Tovra_SystemDeviceDiskDrive": the controller system and every disk drive.
#include "AssociationStamp.h"

namespace {

struct SystemDeviceDiskDrive {
    static constexpr tovra::AssociationDescriptor kAssoc{
        .prefix = "TovraSystemDeviceDiskDriveProvider",
        .cls = "Tovra_SystemDeviceDiskDrive",
        .superClass = "CIM_SystemDevice",
        .left = {"Tovra_RAIDControllerSystem", "GroupComponent", "CIM_ComputerSystem", nullptr},
        .right = {"Tovra_DiskDrive", "PartComponent", "CIM_DiskDrive", nullptr},
        .rule = tovra::KeyRule::AllPairs,
    };
    using Ops = tovra::AssociationOps<SystemDeviceDiskDrive>;
};

}  // namespace

TOVRA_ASSOCIATION_PROVIDER(SystemDeviceDiskDrive, SystemDeviceDiskDrive)
