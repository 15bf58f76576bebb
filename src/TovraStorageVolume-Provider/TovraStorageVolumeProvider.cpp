// "Tovra_StorageVolume": every volume set of the adapter as a storage volume.
#include "ModuleStamp.h"
#include "DiskInventory.h"
#include "RaidInventory.h"

#include <cstring>
#include <optional>

namespace {

constexpr CMPIUint16 opstatval = 2;

struct StorageVolume {
    static constexpr const char *kPrefix = "TovraStorageVolumeProvider";
    static constexpr const char *kClass = "Tovra_StorageVolume";
    static constexpr const char *kSuperClass = "CIM_StorageVolume";
    static inline const char *kKeys[] = {"CreationClassName", "DeviceID", "SystemName", "SystemCreationClassName",
                                            nullptr};
    static constexpr CMPICount kCapacity = 32;
    static constexpr bool kReadsController = true;
    struct Ops;

    // One record serves the whole walk and is not cleared between numbers:
    // a field the decoder leaves alone keeps the previous volume's value.
    template <class Emit> static tovra::WalkResult walk(tovra::WalkContext &w, Emit &&emit) {
        const char *systemName = GetControllerSerialNumber(w.controller);
        if (!PrecedingEnumeration(w.status, w.fd, 5)) return tovra::WalkResult::Abort;
        VolumeInfo v{};
        for (int number = 0; number < 32; ++number) {
            if (!EnumTovraVolumeInfo(w.status, w.fd, number, &v) || v.Capacity == 0) continue;
            const bool more = emit(
                [&](tovra::KeyWriter &k) {
                    k.str("CreationClassName", kClass);
                    k.str("DeviceID", v.VolumeName);
                    k.str("SystemName", systemName);
                    k.str("SystemCreationClassName", SystemCreationClassName);
                },
                [&](tovra::PropertyWriter &p) {
                    p.str("CacheMode", v.CacheMode);
                    p.u64("Capacity", v.Capacity);
                    p.u32("Channel", v.Channel);
                    p.str("CreationClassName", kClass);
                    p.str("DeviceID", v.VolumeName);
                    p.str("ElementName", v.VolumeName);
                    p.u32("ID", v.SCSIID);
                    p.str("KeyValidated", v.KeyValidated);
                    p.u32("Lun", v.SCSILun);
                    p.u32("MemberDisks", v.MemberDisks);
                    p.u16Array("OperationalStatus", {opstatval});
                    p.u32("Progress", v.Progress);
                    p.u32("RAIDLevel", v.RaidLevel);
                    p.u8("RaidSetNumber", v.RaidSetNumber);
                    p.u64("StripeSize", v.StripeSize);
                    p.str("SystemCreationClassName", SystemCreationClassName);
                    p.str("SystemName", systemName);
                    p.str("TaggedQueuing", v.TaggedQueuing);
                    p.str("VolumeEncryption", v.VolumeEncryption);
                    p.u32("VolumeNo", v.VolumeNumber);
                    p.str("VolumeSerial", v.VolumeSerial);
                    p.str("VolumeState", v.VolumeStatus);
                    p.str("WriteProtect", v.WriteProtect);
                });
            if (!more) break;
        }
        return tovra::WalkResult::Complete;
    }
};

using S = tovra::ModuleState<StorageVolume>;
using tovra::makeStatus;
using tovra::okStatus;

// Get looks a volume up by a part of its name, or by its 1-based number when
// the request carries no "DeviceID".
struct StorageVolume::Ops : tovra::CachedInstanceOps<StorageVolume> {
    static CMPIStatus getInstance(const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *ref,
                                  const char **) {
        const char *op = "GetInstance";
        const std::string name = tovra::opName(kPrefix, op);
        CMPIStatus st = okStatus();
        std::string wantedName;
        uint64_t wantedNumber = 255;  // no volume has this number
        bool lookup = false;
        if (classMatches(ref, op)) {
            CMPIStatus keySt = okStatus();
            CMPIData id = CMGetKey(ref, "DeviceID", &keySt);
            if (keySt.rc == CMPI_RC_OK && !(id.state & CMPI_nullValue)) {
                const char *text = tovra::stringOf(id);
                if (text == nullptr) {
                    tovra::logAlert("%s: CMPI_RC_ERR_FAILED\n", name.c_str());
                    st = makeStatus(CMPI_RC_ERR_FAILED);
                } else {
                    wantedName = text;
                    lookup = true;
                }
            } else {
                CMPIStatus noSt = okStatus();
                std::optional<uint64_t> number = tovra::unsignedOf(CMGetKey(ref, "VolumeNo", &noSt));
                if (noSt.rc != CMPI_RC_OK || !number) {
                    tovra::logAlert("%s: CMPI_RC_ERR_FAILED\n", name.c_str());
                    st = makeStatus(CMPI_RC_ERR_FAILED);
                } else if (*number == 0) {
                    // The message is handed back as it stands, "%s" and all.
                    CMReturnDone(rslt);
                    CMPIStatus tooSmall{static_cast<CMPIrc>(50),
                                        CMNewString(S::_TovraBroker, "%s: Error!! VolumeNo is smaller than 1.\n",
                                                    nullptr)};
                    return tooSmall;
                } else {
                    wantedNumber = *number;
                    S::SetInstTime.store(0);
                    wantedName = "KeLpOrIn";  // no volume name contains the signature text
                    lookup = true;
                }
            }
        }
        if (lookup && refreshIfStale(ctx, ref, st, op)) {
            findCached(op, rslt, st, [&](const CMPIInstance *inst) {
                CMPIData id = CMGetProperty(inst, "DeviceID", nullptr);
                const char *text = tovra::stringOf(id);
                if (text == nullptr) {
                    tovra::logAlert("%s: Found an exception\n", name.c_str());
                    return tovra::Visit::Stop;
                }
                if (std::strstr(text, wantedName.c_str()) != nullptr) return tovra::Visit::Found;
                std::optional<uint64_t> number = tovra::unsignedOf(CMGetProperty(inst, "VolumeNo", nullptr));
                return number && *number == wantedNumber ? tovra::Visit::Found : tovra::Visit::NoMatch;
            });
        }
        return finish(rslt, op, st, wantedName);
    }
};

}  // namespace

TOVRA_INSTANCE_PROVIDER(StorageVolume, StorageVolume)
TOVRA_METHOD_PROVIDER(StorageVolume, StorageVolume)
