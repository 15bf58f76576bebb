// "Tovra_StorageVolume": every volume set of the adapter as a storage volume.
#include "ModuleStamp.h"
#include "DiskInventory.h"
#include "MethodCommand.h"
#include "RaidInventory.h"
#include "VolumeRequests.h"

#include <cstring>
#include <optional>
#include <string_view>

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
    static CMPIStatus invokeMethod(const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *,
                                   const char *method, const CMPIArgs *in, CMPIArgs *);

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

using tovra::ArgReader;
using tovra::failMethod;

// Arguments of one volume method with the texts that name it.
class VolumeArgs {
public:
    VolumeArgs(const ArgReader &args, const char *method) : args_(args), method_(method) {}

    std::string missing(const char *name, const char *method = nullptr) const {
        return std::string("Argument ") + name + " not present in " + (method ? method : method_) + " Method Command.";
    }
    uint32_t number(const char *name, const char *wrong = nullptr) const {
        return args_.number(name, missing(name).c_str(), wrong);
    }
    // At most `limit`, with the "greater than" text.
    uint8_t bounded(const char *name, uint32_t limit) const {
        const uint32_t v = number(name);
        if (v > limit) fail("Argument " + std::string(name) + " in " + method_ + " Method Command is greater than " +
                            std::to_string(limit) + ".");
        return static_cast<uint8_t>(v);
    }
    // The RAID set or volume number, which must not be 0.
    uint8_t nonZero(const char *name) const {
        const uint32_t v = number(name);
        if (v == 0) fail("Argument " + std::string(name) + " is incorrect in " + method_ + " Method Command.");
        return static_cast<uint8_t>(v);
    }
    // A 0-or-1 argument; a value of another type fails with the same text.
    uint8_t flag(const char *name, const std::string &bad, const char *method = nullptr) const {
        const std::string absent = missing(name, method);
        const uint32_t v = args_.number(name, absent.c_str(), bad.c_str());
        if (v > 1) fail(bad);
        return static_cast<uint8_t>(v);
    }
    // Stripe size in KiB (4 to 1024, powers of two) as its code 0 to 8.
    uint8_t stripe(const std::string &bad) const {
        const uint32_t kib = args_.number("Strp", missing("Strp").c_str(), bad.c_str());
        for (uint8_t code = 0; code <= 8; ++code)
            if (kib == (4u << code)) return code;
        fail(bad);
    }
    // RAID level 0, 1 (also 10), 3, 5, 6 as its code 0 to 4.
    uint8_t level(const std::string &bad) const {
        const uint32_t level = args_.number("Ll", missing("Ll").c_str(), bad.c_str());
        constexpr uint32_t kLevels[] = {0, 1, 3, 5, 6};
        for (uint8_t code = 0; code < std::size(kLevels); ++code)
            if (level == kLevels[code]) return code;
        fail(bad);
    }
    std::string name() const {
        std::string n = args_.text("Name", missing("Name").c_str());
        if (n.size() > 16)
            fail("Argument Name Character Size in " + std::string(method_) + " Method Command is greater than 16");
        return n;
    }

private:
    [[noreturn]] static void fail(const std::string &message) { failMethod(message.c_str()); }
    const ArgReader &args_;
    const char *method_;
};

// Both methods report "Tag" with the create texts.
constexpr const char kTagBad[] = "Argument Tag in CreateVolume Method Command is neither 1(true) nor 0(false).";

// A change to a volume makes the pool cache (free space, volume count) stale.
template <class Operation>
CMPIStatus volumeMethod(const CMPIContext *ctx, const CMPIResult *rslt, const char *openFailed, Operation &&op) {
    return tovra::deviceMethod(S::_TovraBroker, ctx, rslt, openFailed, {"Tovra_StoragePool"},
                               [&](int fd) { return op(S::_TovraBroker, fd); });
}

CMPIStatus createVolume(const CMPIContext *ctx, const CMPIResult *rslt, const ArgReader &in) {
    tovra::requireArgCount("CreateVolume", in.count(), 11);
    const VolumeArgs a(in, "CreateVolume");
    const uint8_t id = a.bounded("ID", 15);
    const uint8_t lun = a.bounded("LUN", 7);
    const uint8_t raid = a.nonZero("RAIDNo");
    const uint8_t stripe = a.stripe("Strp not correct in CreateVolume Method Command.");
    const uint8_t level = a.level("Ll in CreateVolume Method Command is incorrect.");
    const uint32_t cap = a.number("Cap");
    const std::string name = a.name();
    const uint8_t cache = a.flag("Cache", "Argument Cache in CreateVolume Method Command is neither 0(false) nor 1(true).");
    const uint8_t fg = a.flag("FG", "Argument FG in CreateVolume Method Command is neither 0(false) nor 1(true).");
    const uint8_t gtt = a.flag("GtT", "Argument GtT in CreateVolume Method Command is neither 0(64BIT) nor 2(WIN).");
    const uint8_t tag = a.flag("Tag", kTagBad);
    return volumeMethod(ctx, rslt, "CreateVolume: File Open Failed.", [&](const CMPIBroker *b, int fd) {
        return CreateVolume(b, fd, raid, name, cap, level, stripe, id, lun, tag, cache, fg, gtt, 0);
    });
}

CMPIStatus modifyVolume(const CMPIContext *ctx, const CMPIResult *rslt, const ArgReader &in) {
    tovra::requireArgCount("ModifyVolume", in.count(), 9);
    const VolumeArgs a(in, "ModifyVolume");
    const uint32_t cap = a.number("Cap");
    const uint8_t volume = a.nonZero("Num");
    const uint8_t id = a.bounded("ID", 15);
    const uint8_t lun = a.bounded("LUN", 7);
    const uint8_t stripe = a.stripe("Argument Strp not correct in ModifyVolume Method Command.");
    const uint8_t level = a.level("Argument Ll in ModifyVolume Method Command is incorrect.");
    const std::string name = a.name();
    const uint8_t cache = a.flag("Cache", "Argument Cache in ModifyVolume Method Command is neither N nor Y.");
    const uint8_t tag = a.flag("Tag", kTagBad, "CreateVolume");
    return volumeMethod(ctx, rslt, "ModifyVolume: File Open Failed.", [&](const CMPIBroker *b, int fd) {
        return ModifyVolume(b, fd, volume, name, level, cap, stripe, id, lun, tag, cache);
    });
}

CMPIStatus deleteVolume(const CMPIContext *ctx, const CMPIResult *rslt, const ArgReader &in) {
    tovra::requireArgCount("DeleteVolume", in.count(), 1);
    const uint8_t volume = VolumeArgs(in, "DeleteVolume").nonZero("Num");
    return volumeMethod(ctx, rslt, "DeleteVolume: File Open Failed.",
                        [&](const CMPIBroker *b, int fd) { return DeleteVolume(b, fd, volume); });
}

using Handler = CMPIStatus (*)(const CMPIContext *, const CMPIResult *, const ArgReader &);
constexpr std::pair<std::string_view, Handler> kMethods[] = {
    {"CreateVolume", createVolume}, {"DeleteVolume", deleteVolume}, {"ModifyVolume", modifyVolume}};

CMPIStatus StorageVolume::invokeMethod(const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *,
                                       const char *method, const CMPIArgs *in, CMPIArgs *) {
    return tovra::dispatchMethod(kMethods, ctx, rslt, method, in);
}

}  // namespace

TOVRA_INSTANCE_PROVIDER(StorageVolume, StorageVolume)
TOVRA_METHOD_PROVIDER(StorageVolume, StorageVolume)
