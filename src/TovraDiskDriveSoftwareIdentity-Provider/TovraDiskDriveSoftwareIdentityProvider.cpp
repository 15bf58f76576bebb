// "Tovra_DiskDriveSoftwareIdentity": a disk's firmware: an identity whose id
// contains the disk's id.
#include "AssociationStamp.h"

namespace {

struct DiskDriveSoftwareIdentity {
    static constexpr tovra::AssociationDescriptor kAssoc{
        .prefix = "TovraDiskDriveSoftwareIdentityProvider",
        .cls = "Tovra_DiskDriveSoftwareIdentity",
        .superClass = "CIM_ElementSoftwareIdentity",
        .left = {"Tovra_SoftwareIdentity", "Antecedent", "CIM_SoftwareIdentity", "InstanceID"},
        .right = {"Tovra_DiskDrive", "Dependent", "CIM_DiskDrive", "DeviceID"},
        .rule = tovra::KeyRule::LeftContainsRight,
    };
    using Ops = tovra::AssociationOps<DiskDriveSoftwareIdentity>;
};

}  // namespace

TOVRA_ASSOCIATION_PROVIDER(DiskDriveSoftwareIdentity, DiskDriveSoftwareIdentity)
