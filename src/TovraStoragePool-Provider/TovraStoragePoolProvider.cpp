// "Tovra_StoragePool": every RAID set of the adapter as a storage pool.
#include "ModuleStamp.h"
#include "DiskInventory.h"
#include "MethodCommand.h"
#include "RaidInventory.h"
#include "RaidSetRequests.h"

#include <algorithm>
#include <mutex>
#include <string_view>

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

    static CMPIStatus invokeMethod(const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *,
                                   const char *method, const CMPIArgs *in, CMPIArgs *);
};

using S = tovra::ModuleState<StoragePool>;
using tovra::ArgReader;
using tovra::failMethod;
using tovra::requireArgCount;

// A change to a RAID set or hot spare makes the disk and volume caches stale.
template <class Operation>
CMPIStatus poolMethod(const CMPIContext *ctx, const CMPIResult *rslt, const char *openFailed, Operation &&op) {
    return tovra::deviceMethod(S::_TovraBroker, ctx, rslt, openFailed, {"Tovra_DiskDrive", "Tovra_StorageVolume"},
                               [&](int fd) { return op(S::_TovraBroker, fd); });
}

CMPIStatus createRaidSet(const CMPIContext *ctx, const CMPIResult *rslt, const ArgReader &args) {
    requireArgCount("CreateRAIDSet", args.count(), 4);
    const uint8_t members = args.byte("MemberDisks", "Argument MemberDisks not present in CreateRAIDSet Method Command.");
    std::vector<uint8_t> disks =
        args.bytes("DiskArray", "Argument DiskArray not present in CreateRAIDSet Method Command.", nullptr,
                   members + 1u);
    if (disks.size() != members) failMethod("the element of DiskArray incorret");
    for (std::size_t i = 0; i < disks.size(); ++i)
        tovra::logAlert("%s: diskArray[%d] = %d\n", "TovraStoragePoolProviderInvokeMethod", static_cast<int>(i),
                        disks[i]);
    const uint8_t enc = args.byte("Enc", "Argument Enc not present in CreateRAIDSet Method Command.");
    if (enc == 0) failMethod("Argument enc is incorrect in CreateRAIDSet Method Command.");
    const std::string name = args.text("Name", "Argument Name not present in CreateRAIDSet Method Command.");
    if (name.size() > 16) failMethod("Argument Name Character Size in CreateRAIDSet Method Command is greater than 16");
    return poolMethod(ctx, rslt, "CreateRAIDSet: File Open Failed.", [&](const CMPIBroker *b, int fd) {
        return CreateRAIDSet(b, fd, static_cast<uint8_t>(disks.size()), name, static_cast<uint8_t>(enc - 1), disks, 1);
    });
}

// "RAIDNo" of a method that names one RAID set; `zeroRefused` also rejects 0.
uint8_t raidNumber(const ArgReader &args, const char *method, bool zeroRefused) {
    const std::string missing = std::string("Argument RAIDNo not present in ") + method + " Method Command.";
    const uint8_t raid = args.byte("RAIDNo", missing.c_str());
    if (zeroRefused && raid == 0) failMethod("Argument RAIDNo is inCorrect");
    return raid;
}

CMPIStatus deleteRaidSet(const CMPIContext *ctx, const CMPIResult *rslt, const ArgReader &args) {
    requireArgCount("DeleteRAIDSet", args.count(), 1);
    const uint8_t raid = raidNumber(args, "DeleteRAIDSet", true);
    return poolMethod(ctx, rslt, "DeleteRAIDSet: File Open Failed.",
                      [&](const CMPIBroker *b, int fd) { return DeleteRAIDSet(b, fd, raid); });
}

// The number of RAID sets in this module's instance cache.
CMPICount cachedRaidSets() {
    std::lock_guard lock(S::Mutex4InsArray);
    return S::NumOfInst;
}

// "Encls" is read only up to the number of cached RAID sets, whatever its
// length; the two lengths are compared as bytes.
CMPIStatus expandRaidSet(const CMPIContext *ctx, const CMPIResult *rslt, const ArgReader &args) {
    requireArgCount("ExpandRAIDSet", args.count(), 3);
    const uint8_t raid = raidNumber(args, "ExpandRAIDSet", true);
    std::vector<uint8_t> disks =
        args.bytes("DiskArray", "Argument DiskArray not present in CreateRAIDSet Method Command.");
    std::vector<uint8_t> encls = args.bytes("Encls", "Argument Encls not present in CreateRAIDSet Method Command.",
                                            nullptr, cachedRaidSets());
    // The request states the number of new members in one byte.
    if (disks.size() > kMaxExpandMembers || encls.size() > kMaxExpandMembers)
        failMethod("Argument DiskArray or Encls has more than 255 elements in ExpandRAIDSet Method Command.");
    if (static_cast<uint8_t>(disks.size()) != static_cast<uint8_t>(encls.size()))
        failMethod("the element of DiskArray and Encls incorret");
    return poolMethod(ctx, rslt, "ExpandRAIDSet: File Open Failed.", [&](const CMPIBroker *b, int fd) {
        return ExpandRAIDSet(b, fd, raid, disks.size(), disks, encls);
    });
}

CMPIStatus offlineRaidSet(const CMPIContext *ctx, const CMPIResult *rslt, const ArgReader &args) {
    requireArgCount("OfflineRAIDSet", args.count(), 1);
    const uint8_t raid = raidNumber(args, "OfflineRAIDSet", false);
    return poolMethod(ctx, rslt, "OfflineRAIDSet: File Open Failed.",
                      [&](const CMPIBroker *b, int fd) { return OffLineRAIDSet(b, fd, raid); });
}

CMPIStatus activateRaidSet(const CMPIContext *ctx, const CMPIResult *rslt, const ArgReader &args) {
    requireArgCount("ActivateRAIDSet", args.count(), 1);
    const uint8_t raid = raidNumber(args, "ActivateRAIDSet", false);
    return poolMethod(ctx, rslt, "ActivateRAIDSet: File Open Failed.",
                      [&](const CMPIBroker *b, int fd) { return ActivateRAIDSet(b, fd, raid); });
}

// Both hot spare methods report missing arguments with the create texts.
uint8_t hotSpareArg(const ArgReader &args, const char *name) {
    const std::string missing = std::string("Argument ") + name + " not present in CreateHotSpare Method Command.";
    return args.byte(name, missing.c_str());
}

CMPIStatus createHotSpare(const CMPIContext *ctx, const CMPIResult *rslt, const ArgReader &args) {
    requireArgCount("CreateHotSpare", args.count(), 4);
    const uint8_t type = hotSpareArg(args, "Type");
    const uint8_t raid = hotSpareArg(args, "RAIDNo");
    const uint8_t enc = hotSpareArg(args, "Enc");
    const uint8_t disk = hotSpareArg(args, "Disk");
    return poolMethod(ctx, rslt, "CreateHotSpare: File Open Failed.",
                      [&](const CMPIBroker *b, int fd) { return CreateHotSpare(b, fd, enc, disk, type, raid); });
}

CMPIStatus deleteHotSpare(const CMPIContext *ctx, const CMPIResult *rslt, const ArgReader &args) {
    requireArgCount("DeleteHotSpare", args.count(), 2);
    const uint8_t enc = hotSpareArg(args, "Enc");
    const uint8_t disk = hotSpareArg(args, "Disk");
    return poolMethod(ctx, rslt, "DeleteHotSpare: File Open Failed.",
                      [&](const CMPIBroker *b, int fd) { return DeleteHotSpare(b, fd, enc, disk); });
}

using Handler = CMPIStatus (*)(const CMPIContext *, const CMPIResult *, const ArgReader &);
constexpr std::pair<std::string_view, Handler> kMethods[] = {
    {"CreateRAIDSet", createRaidSet},   {"DeleteRAIDSet", deleteRaidSet},   {"ExpandRAIDSet", expandRaidSet},
    {"OfflineRAIDSet", offlineRaidSet}, {"ActivateRAIDSet", activateRaidSet}, {"CreateHotSpare", createHotSpare},
    {"DeleteHotSpare", deleteHotSpare},
};

CMPIStatus StoragePool::invokeMethod(const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *,
                                     const char *method, const CMPIArgs *in, CMPIArgs *) {
    return tovra::dispatchMethod(kMethods, ctx, rslt, method, in);
}

}  // namespace

TOVRA_INSTANCE_PROVIDER(StoragePool, StoragePool)
TOVRA_METHOD_PROVIDER(StoragePool, StoragePool)
