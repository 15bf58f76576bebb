// "Tovra_AllocatedFromStoragePool": volumes and the RAID set (pool) they are
// allocated from, by RAID set number.
#include "AssociationStamp.h"

namespace {

struct AllocatedFromStoragePool {
    static constexpr tovra::AssociationDescriptor kAssoc{
        .prefix = "TovraAllocatedFromStoragePoolProvider",
        .cls = "Tovra_AllocatedFromStoragePool",
        .superClass = "CIM_AllocatedFromStoragePool",
        .left = {"Tovra_StoragePool", "Antecedent", "CIM_StoragePool", "RaidSetNumber"},
        .right = {"Tovra_StorageVolume", "Dependent", "CIM_StorageVolume", "RaidSetNumber"},
        .rule = tovra::KeyRule::Equal8,
    };
    using Ops = tovra::AssociationOps<AllocatedFromStoragePool>;
};

}  // namespace

TOVRA_ASSOCIATION_PROVIDER(AllocatedFromStoragePool, AllocatedFromStoragePool)
