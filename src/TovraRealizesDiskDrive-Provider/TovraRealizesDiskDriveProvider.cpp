// "Tovra_RealizesDiskDrive": a disk's package and the disk drive it realises,
// by tag.
#include "AssociationStamp.h"

namespace {

struct RealizesDiskDrive {
    static constexpr tovra::AssociationDescriptor kAssoc{
        .prefix = "TovraRealizesDiskDriveProvider",
        .cls = "Tovra_RealizesDiskDrive",
        .superClass = "CIM_Realizes",
        .left = {"Tovra_PhysicalPackage", "Antecedent", "CIM_PhysicalPackage", "Tag"},
        .right = {"Tovra_DiskDrive", "Dependent", "CIM_DiskDrive", "Tag"},
        .rule = tovra::KeyRule::SameText,
    };
    using Ops = tovra::AssociationOps<RealizesDiskDrive>;
};

}  // namespace

TOVRA_ASSOCIATION_PROVIDER(RealizesDiskDrive, RealizesDiskDrive)
