// "Tovra_PhysicalPackage": the adapter card, tagged with the controller's
// serial number, and the package of every present disk, tagged like its slot
// and its disk drive ("enclosure * 256 + slot", both 0-based).
#include "DiskInventory.h"
#include "ModuleStamp.h"

#include <string>

namespace {

// PackageType values.
constexpr uint16_t kModuleCard = 9;
constexpr uint16_t kStorageMediaPackage = 15;

struct PhysicalPackage {
    static constexpr const char *kPrefix = "TovraPhysicalPackageProvider";
    static constexpr const char *kClass = "Tovra_PhysicalPackage";
    static constexpr const char *kSuperClass = "CIM_PhysicalPackage";
    static constexpr const char *kGetKey = "Tag";
    static inline const char *kKeys[] = {"CreationClassName", "Tag", nullptr};
    static constexpr CMPICount kCapacity = 1 + tovra::kMaxSlotPositions;
    static constexpr bool kReadsController = true;
    using Ops = tovra::CachedInstanceOps<PhysicalPackage>;

    template <class Emit> static bool emitPackage(Emit &emit, const std::string &tag, auto &&props) {
        return emit(
            [&](tovra::KeyWriter &k) {
                k.str("CreationClassName", kClass);
                k.str("Tag", tag);
            },
            [&](tovra::PropertyWriter &p) {
                p.str("CreationClassName", kClass);
                p.str("Tag", tag);
                props(p);
            });
    }

    template <class Emit> static tovra::WalkResult walk(tovra::WalkContext &w, Emit &&emit) {
        const ControllerInfo &c = *w.controller;
        const bool more = emitPackage(emit, GetControllerSerialNumber(&c), [&](tovra::PropertyWriter &p) {
            p.str("ElementName", std::string(GetControllerModelFullName(&c)) + " adapter card");
            p.str("Manufacturer", c.VendorName);
            p.str("Model", GetControllerModelFullName(&c));
            p.str("SerialNumber", GetControllerSerialNumber(&c));
            p.str("Version", c.MbVersion);
            p.u16("PackageType", kModuleCard);
            p.boolean("Removable", true);
            p.boolean("Replaceable", true);
            p.boolean("HotSwappable", false);
            p.boolean("CanBeFRUed", true);
        });
        if (!more) return tovra::WalkResult::Complete;
        WalkDisks(w.status, w.fd, [&](const EnclosureInfo &, DiskInfo &d) {
            if (d.Capacity == 0) return true;
            const std::string tag = std::to_string(d.EnclosureNumber * 256 + d.SlotNumber);
            return emitPackage(emit, tag, [&](tovra::PropertyWriter &p) {
                p.str("ElementName", std::string("Disk in ") + d.Enc + " " + d.Slot);
                p.str("Model", d.ModelName);
                p.str("SerialNumber", d.SerialNumber);
                p.u16("PackageType", kStorageMediaPackage);
                p.boolean("Removable", true);
                p.boolean("Replaceable", true);
                p.boolean("HotSwappable", true);
                p.boolean("CanBeFRUed", true);
                p.u8("EnclosureNumber", d.EnclosureNumber);
                p.u8("SlotNumber", d.SlotNumber);
            });
        });
        return tovra::WalkResult::Complete;
    }
};

}  // namespace

TOVRA_INSTANCE_PROVIDER(PhysicalPackage, PhysicalPackage)
