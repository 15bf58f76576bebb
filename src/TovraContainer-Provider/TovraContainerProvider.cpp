// "Tovra_Container": an enclosure (chassis) and its drive slots: the slot's
// enclosure text is the chassis tag.
#include "AssociationStamp.h"

namespace {

struct Container {
    static constexpr tovra::AssociationDescriptor kAssoc{
        .prefix = "TovraContainerProvider",
        .cls = "Tovra_Container",
        .superClass = "CIM_Container",
        .left = {"Tovra_Chassis", "GroupComponent", "CIM_Chassis", "Tag"},
        .right = {"Tovra_DiskDriveSlot", "PartComponent", "CIM_Slot", "EnclosureNameRev"},
        .rule = tovra::KeyRule::SameText,
    };
    using Ops = tovra::AssociationOps<Container>;
};

}  // namespace

TOVRA_ASSOCIATION_PROVIDER(Container, Container)
