// "Tovra_HostedStoragePool": the controller system and every storage pool.
#include "AssociationStamp.h"

namespace {

struct HostedStoragePool {
    static constexpr tovra::AssociationDescriptor kAssoc{
        .prefix = "TovraHostedStoragePoolProvider",
        .cls = "Tovra_HostedStoragePool",
        .superClass = "CIM_HostedStoragePool",
        .left = {"Tovra_RAIDControllerSystem", "GroupComponent", "CIM_ComputerSystem", nullptr},
        .right = {"Tovra_StoragePool", "PartComponent", "CIM_StoragePool", nullptr},
        .rule = tovra::KeyRule::AllPairs,
    };
    using Ops = tovra::AssociationOps<HostedStoragePool>;
};

}  // namespace

TOVRA_ASSOCIATION_PROVIDER(HostedStoragePool, HostedStoragePool)
