// "Tovra_PackageInConnector": a disk's package and the slot it sits in, by tag.
#include "AssociationStamp.h"

namespace {

struct PackageInConnector {
    static constexpr tovra::AssociationDescriptor kAssoc{
        .prefix = "TovraPackageInConnectorProvider",
        .cls = "Tovra_PackageInConnector",
        .superClass = "CIM_PackageInConnector",
        .left = {"Tovra_PhysicalPackage", "Antecedent", "CIM_PhysicalPackage", "Tag"},
        .right = {"Tovra_DiskDriveSlot", "Dependent", "CIM_Slot", "Tag"},
        .rule = tovra::KeyRule::SameText,
    };
    using Ops = tovra::AssociationOps<PackageInConnector>;
};

}  // namespace

TOVRA_ASSOCIATION_PROVIDER(PackageInConnector, PackageInConnector)
