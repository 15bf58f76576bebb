// "Tovra_DiskExtent": the storage extent of every present disk.
#include "ModuleStamp.h"
#include "DiskInventory.h"
#include "EnclosureInventory.h"

namespace {

struct DiskExtent {
    static constexpr const char *kPrefix = "TovraDiskExtentProvider";
    static constexpr const char *kClass = "Tovra_DiskExtent";
    static constexpr const char *kSuperClass = "CIM_StorageExtent";
    static constexpr const char *kGetKey = "DeviceID";
    static inline const char *kKeys[] = {"CreationClassName", "DeviceID", "SystemCreationClassName", "SystemName",
                                            nullptr};
    static constexpr CMPICount kCapacity = tovra::kMaxSlotPositions;
    static constexpr bool kReadsController = true;
    using Ops = tovra::CachedInstanceOps<DiskExtent>;

    template <class Emit> static tovra::WalkResult walk(tovra::WalkContext &w, Emit &&emit) {
        const char *systemName = GetControllerSerialNumber(w.controller);
        WalkDisks(w.status, w.fd, [&](const EnclosureInfo &, DiskInfo &d) {
            if (d.Capacity == 0) return true;
            return emit(
                [&](tovra::KeyWriter &k) { k.deviceKeys(kClass, d.SerialNumber, systemName); },
                [&](tovra::PropertyWriter &p) {
                    p.str("CreationClassName", kClass);
                    p.str("DeviceID", d.SerialNumber);
                    p.u8("EnclosureNumber", d.EnclosureNumber);
                    p.str("FirmwareRevision", d.FirmRev);
                    p.u64("NumberOfBlocks", d.Capacity);
                    p.u8("RaidSetNumber", d.RaidSetNumber);
                    p.str("SystemName", systemName);
                    p.str("SystemCreationClassName", SystemCreationClassName);
                });
        });
        return tovra::WalkResult::Complete;
    }
};

}  // namespace

TOVRA_INSTANCE_PROVIDER(DiskExtent, DiskExtent)
