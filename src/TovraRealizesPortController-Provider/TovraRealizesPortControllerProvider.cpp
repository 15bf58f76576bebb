// "Tovra_RealizesPortController": the package that realises the port
// controller. The roles sit on the ends opposite to the usual order, and the
// enumerations pair a package whose tag merely contains the controller's id,
// which the associator operations do not: both kept deliberately.
#include "AssociationStamp.h"

namespace {

struct RealizesPortController {
    static constexpr tovra::AssociationDescriptor kAssoc{
        .prefix = "TovraRealizesPortControllerProvider",
        .cls = "Tovra_RealizesPortController",
        .superClass = "CIM_Realizes",
        .left = {"Tovra_PortController", "Dependent", "CIM_PortController", "DeviceID"},
        .right = {"Tovra_PhysicalPackage", "Antecedent", "CIM_PhysicalPackage", "Tag"},
        .rule = tovra::KeyRule::SameText,
        .enumerationRule = tovra::KeyRule::RightContainsLeft,
    };
    using Ops = tovra::AssociationOps<RealizesPortController>;
};

}  // namespace

TOVRA_ASSOCIATION_PROVIDER(RealizesPortController, RealizesPortController)
