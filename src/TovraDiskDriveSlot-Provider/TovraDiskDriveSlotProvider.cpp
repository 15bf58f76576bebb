// "Tovra_DiskDriveSlot": every drive slot of every enclosure, whether or not
// it holds a disk. Published from the enclosures' slot counts alone.
#include "ModuleStamp.h"
#include "EnclosureInventory.h"

#include <string>

namespace {

struct DiskDriveSlot {
    static constexpr const char *kPrefix = "TovraDiskDriveSlotProvider";
    static constexpr const char *kClass = "Tovra_DiskDriveSlot";
    static constexpr const char *kSuperClass = "CIM_Slot";
    static constexpr const char *kGetKey = "Tag";
    static inline const char *kKeys[] = {"CreationClassName", "Tag", nullptr};
    static constexpr CMPICount kCapacity = tovra::kMaxSlotPositions;
    static constexpr bool kReadsController = false;
    using Ops = tovra::CachedInstanceOps<DiskDriveSlot>;

    template <class Emit> static tovra::WalkResult walk(tovra::WalkContext &w, Emit &&emit) {
        for (int enc = 0; enc < 12; ++enc) {
            EnclosureInfo e{};
            if (!EnumTovraEnclosureInfo(w.status, w.fd, enc, &e) || e.EncSlots == 0) continue;
            for (int slot = 0; slot < e.EncSlots; ++slot) {
                const std::string tag = std::to_string(enc * 256 + slot);
                const bool more = emit(
                    [&](tovra::KeyWriter &k) {
                        k.str("CreationClassName", kClass);
                        k.str("Tag", tag);
                    },
                    [&](tovra::PropertyWriter &p) {
                        p.str("CreationClassName", kClass);
                        p.str("EnclosureNameRev", e.EnclosureNameRev);
                        p.u8("Number", static_cast<CMPIUint8>(slot));
                        p.str("Tag", tag);
                    });
                if (!more) return tovra::WalkResult::Complete;
            }
        }
        return tovra::WalkResult::Complete;
    }
};

}  // namespace

TOVRA_INSTANCE_PROVIDER(DiskDriveSlot, DiskDriveSlot)
