// "Tovra_StoragePool": every RAID set of the adapter as a storage pool.
#include "ModuleStamp.h"
#include "DiskInventory.h"
#include "RaidInventory.h"

#include <algorithm>

namespace {

struct StoragePool {
    static constexpr const char *kPrefix = "TovraStoragePoolProvider";
    static constexpr const char *kClass = "Tovra_StoragePool";
    static constexpr const char *kSuperClass = "CIM_StoragePool";
    static constexpr const char *kGetKey = "InstanceID";
    static inline const char *kKeys[] = {"InstanceID", nullptr};
    static constexpr CMPICount kCapacity = 8;
    static constexpr bool kReadsController = false;
    using Ops = tovra::CachedInstanceOps<StoragePool>;

    template <class Emit> static tovra::WalkResult walk(tovra::WalkContext &w, Emit &&emit) {
        if (!PrecedingEnumeration(w.status, w.fd, 4)) return tovra::WalkResult::Abort;
        RAIDSetInfo r{};
        // A corrupt member count never reads past the 32-byte member lists.
        auto members = [&r] { return std::min<unsigned>(r.MemberDisks, sizeof r.DevArray); };
        for (int number = 0; number < 8; ++number) {
            if (!EnumTovraRAIDsInfo(w.status, w.fd, number, &r) || r.Capacity == 0) continue;
            const bool more = emit([&](tovra::KeyWriter &k) { k.str("InstanceID", r.RaidSetName); },
                                   [&](tovra::PropertyWriter &p) {
                                       p.u64("Capacity", r.Capacity);
                                       p.u64("FreeRawCapacity", r.FreeRawCapacity);
                                       p.u8Array("DevArray", r.DevArray, members());
                                       p.u8Array("DevEncArray", r.DevEncArray, members());
                                       p.str("InstanceID", r.RaidSetName);
                                       p.u8("MemberDisks", r.MemberDisks);
                                       p.str("PoolID", r.RaidSetName);
                                       p.str("RAIDState", r.RaidState);
                                       p.u8("RaidSetNumber", r.RAIDSet_No);
                                       p.u8("Volumes", r.Volumes);
                                   });
            if (!more) break;
        }
        return tovra::WalkResult::Complete;
    }
};

}  // namespace

TOVRA_INSTANCE_PROVIDER(StoragePool, StoragePool)
TOVRA_METHOD_PROVIDER(StoragePool, StoragePool)
