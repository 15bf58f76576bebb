// "Tovra_Chassis": one chassis per enclosure that has drive slots, keyed by
// the enclosure's identifying text (product name and revision).
#include "ModuleStamp.h"
#include "EnclosureInventory.h"

namespace {

struct Chassis {
    static constexpr const char *kPrefix = "TovraChassisProvider";
    static constexpr const char *kClass = "Tovra_Chassis";
    static constexpr const char *kSuperClass = "CIM_Chassis";
    static constexpr const char *kGetKey = "Tag";
    static inline const char *kKeys[] = {"CreationClassName", "Tag", nullptr};
    static constexpr CMPICount kCapacity = 12;
    static constexpr bool kReadsController = false;
    using Ops = tovra::CachedInstanceOps<Chassis>;

    template <class Emit> static tovra::WalkResult walk(tovra::WalkContext &w, Emit &&emit) {
        for (int enc = 0; enc < 12; ++enc) {
            EnclosureInfo e{};
            if (!EnumTovraEnclosureInfo(w.status, w.fd, enc, &e) || e.EncSlots == 0) continue;
            const bool more = emit(
                [&](tovra::KeyWriter &k) {
                    k.str("CreationClassName", kClass);
                    k.str("Tag", e.EnclosureNameRev);
                },
                [&](tovra::PropertyWriter &p) {
                    p.str("CreationClassName", kClass);
                    p.str("Tag", e.EnclosureNameRev);
                });
            if (!more) break;
        }
        return tovra::WalkResult::Complete;
    }
};

}  // namespace

TOVRA_INSTANCE_PROVIDER(Chassis, Chassis)
