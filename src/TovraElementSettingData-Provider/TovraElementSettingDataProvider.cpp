// "Tovra_ElementSettingData": a volume and the default setting of its RAID
// level.
#include "AssociationStamp.h"

namespace {

struct ElementSettingData {
    static constexpr tovra::AssociationDescriptor kAssoc{
        .prefix = "TovraElementSettingDataProvider",
        .cls = "Tovra_ElementSettingData",
        .superClass = "CIM_ElementSettingData",
        .left = {"Tovra_StorageVolume", "ManagedElement", "CIM_StorageVolume", "RAIDLevel"},
        .right = {"Tovra_DefaultStorageSetting", "SettingData", "CIM_StorageSetting", "RAIDLevel"},
        .rule = tovra::KeyRule::Equal32,
    };
    using Ops = tovra::AssociationOps<ElementSettingData>;
};

}  // namespace

TOVRA_ASSOCIATION_PROVIDER(ElementSettingData, ElementSettingData)
