// "Tovra_ConcreteComponent": a RAID set (pool) and the extents of its member
// disks, by RAID set number.
#include "AssociationStamp.h"

namespace {

struct ConcreteComponent {
    static constexpr tovra::AssociationDescriptor kAssoc{
        .prefix = "TovraConcreteComponentProvider",
        .cls = "Tovra_ConcreteComponent",
        .superClass = "CIM_ConcreteComponent",
        .left = {"Tovra_StoragePool", "GroupComponent", "CIM_StoragePool", "RaidSetNumber"},
        .right = {"Tovra_DiskExtent", "PartComponent", "CIM_StorageExtent", "RaidSetNumber"},
        .rule = tovra::KeyRule::Equal8,
    };
    using Ops = tovra::AssociationOps<ConcreteComponent>;
};

}  // namespace

TOVRA_ASSOCIATION_PROVIDER(ConcreteComponent, ConcreteComponent)
