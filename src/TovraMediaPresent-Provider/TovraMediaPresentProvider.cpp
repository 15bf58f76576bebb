// "Tovra_MediaPresent": a disk and the extent on it, by serial number.
#include "AssociationStamp.h"

namespace {

struct MediaPresent {
    static constexpr tovra::AssociationDescriptor kAssoc{
        .prefix = "TovraMediaPresentProvider",
        .cls = "Tovra_MediaPresent",
        .superClass = "CIM_MediaPresent",
        .left = {"Tovra_DiskDrive", "Antecedent", "CIM_DiskDrive", "DeviceID"},
        .right = {"Tovra_DiskExtent", "Dependent", "CIM_StorageExtent", "DeviceID"},
        .rule = tovra::KeyRule::SameText,
    };
    using Ops = tovra::AssociationOps<MediaPresent>;
};

}  // namespace

TOVRA_ASSOCIATION_PROVIDER(MediaPresent, MediaPresent)
