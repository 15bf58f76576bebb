// "Tovra_DefaultStorageSetting": one fixed setting per RAID level the adapter
// builds, made from constants on every request. The device is still opened,
// so the answer tells whether the adapter's driver is there.
#include "ModuleStamp.h"
#include "RaidInventory.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace {

constexpr CMPIUint16 ChangeableType = 0;
constexpr CMPIUint8 DeltaReservationGoal = 100;
constexpr CMPIUint8 DeltaReservationMax = 100;
constexpr CMPIUint8 DeltaReservationMin = 100;
constexpr CMPIUint16 Encryption = 0;
constexpr CMPIUint16 ExtentStripeLength = 0;
constexpr CMPIUint16 ExtentStripeLengthMax = 0;
constexpr CMPIUint16 ExtentStripeLengthMin = 0;
constexpr CMPIUint16 ParityLayout = 2;
constexpr CMPIUint64 UserDataStripeDepth = 65536;
constexpr CMPIUint64 UserDataStripeDepthMax = 1048576;
constexpr CMPIUint64 UserDataStripeDepthMin = 8192;

constexpr const char *R0Description =
    "RAID 0 is suitable for high performance with zero data redundancy. Choose this option only for "
    "non-critical data.";
[[maybe_unused]] constexpr const char *R1Description =
    "RAID 1 provides disk mirroring which is suitable for high performance with the best data availability.";
constexpr const char *R3Description =
    "RAID 3 is suitable for applications that demand the highest transfer rates in long sequential reads "
    "and writes.";
constexpr const char *R5Description =
    "RAID 5 is suitable for multi-user environments (database or file system) with small I/O size and high "
    "proportion of read activity.";
constexpr const char *R6Description =
    "RAID 6 is suitable for environments requiring redundancy protection beyond RAID 5, but not requiring "
    "high write performance.";
constexpr const char *R10Description = "RAID 10 is a stripe of mirrors.";
constexpr const char *R30Description =
    "RAID 30 is byte striping with dedicated parity combined with block striping.";
constexpr const char *R50Description =
    "RAID 50 combines the straight block-level striping of RAID 0 with distributed parity of RAID 5.";
constexpr const char *R60Description =
    "RAID 60 combines the straight block-level striping of RAID 0 with distributed double parity of RAID 6.";

struct Level {
    const char *name;
    CMPIUint32 raidLevel;
    const char *description;
};

// There is no "RAID 1" setting: "RAID 10" carries level number 1.
constexpr Level kLevels[] = {
    {"RAID 0", RAIDLevel_0, R0Description},    {"RAID 3", RAIDLevel_3, R3Description},
    {"RAID 5", RAIDLevel_5, R5Description},    {"RAID 6", RAIDLevel_6, R6Description},
    {"RAID 10", RAIDLevel_10, R10Description}, {"RAID 30", RAIDLevel_30, R30Description},
    {"RAID 50", RAIDLevel_50, R50Description}, {"RAID 60", RAIDLevel_60, R60Description},
};

struct DefaultStorageSetting {
    static constexpr const char *kPrefix = "TovraDefaultStorageSettingProvider";
    static constexpr const char *kClass = "Tovra_DefaultStorageSetting";
    static constexpr const char *kSuperClass = "CIM_StorageSetting";
    static inline const char *kKeys[] = {"InstanceID", nullptr};
    struct Ops;
};

using S = tovra::ModuleState<DefaultStorageSetting>;
using tovra::makeStatus;
using tovra::okStatus;

void setProperties(tovra::PropertyWriter &p, const Level &level) {
    p.u16("ChangeableType", ChangeableType);
    p.u8("DeltaReservationGoal", DeltaReservationGoal);
    p.u8("DeltaReservationMax", DeltaReservationMax);
    p.u8("DeltaReservationMin", DeltaReservationMin);
    p.str("Description", level.description);
    p.str("ElementName", level.name);
    p.u16("Encryption", Encryption);
    p.u16("ExtentStripeLength", ExtentStripeLength);
    p.u16("ExtentStripeLengthMax", ExtentStripeLengthMax);
    p.u16("ExtentStripeLengthMin", ExtentStripeLengthMin);
    p.str("InstanceID", level.name);
    p.u16("ParityLayout", ParityLayout);
    p.u32("RAIDLevel", level.raidLevel);
    p.u64("UserDataStripeDepth", UserDataStripeDepth);
    p.u64("UserDataStripeDepthMax", UserDataStripeDepthMax);
    p.u64("UserDataStripeDepthMin", UserDataStripeDepthMin);
}

CMPIObjectPath *settingPath(const std::string &ns, const Level &level) {
    CMPIObjectPath *op = CMNewObjectPath(S::_TovraBroker, ns.c_str(), DefaultStorageSetting::kClass, nullptr);
    if (op != nullptr) tovra::KeyWriter(op).str("InstanceID", level.name);
    return op;
}

// Returns one level as an instance (or only its path) through rslt.
bool returnLevel(const CMPIResult *rslt, const std::string &ns, const Level &level, bool pathOnly,
                 const char **properties) {
    CMPIObjectPath *op = settingPath(ns, level);
    if (op == nullptr) return false;
    if (pathOnly) {
        CMReturnObjectPath(rslt, op);
        return true;
    }
    CMPIInstance *inst = CMNewInstance(S::_TovraBroker, op, nullptr);
    if (inst == nullptr) return false;
    CMSetPropertyFilter(inst, properties, DefaultStorageSetting::kKeys);
    tovra::PropertyWriter p(S::_TovraBroker, inst);
    setProperties(p, level);
    CMReturnInstance(rslt, inst);
    return true;
}

struct DefaultStorageSetting::Ops : tovra::CommonOps<DefaultStorageSetting> {
    static CMPIStatus enumInstanceNames(const CMPIContext *, const CMPIResult *rslt, const CMPIObjectPath *ref) {
        return enumerate(rslt, ref, nullptr, true, "EnumInstanceNames");
    }
    static CMPIStatus enumInstances(const CMPIContext *, const CMPIResult *rslt, const CMPIObjectPath *ref,
                                    const char **properties) {
        return enumerate(rslt, ref, properties, false, "EnumInstances");
    }

    static CMPIStatus getInstance(const CMPIContext *, const CMPIResult *rslt, const CMPIObjectPath *ref,
                                  const char **properties) {
        const std::string name = tovra::opName(kPrefix, "GetInstance");
        CMPIStatus st = okStatus();
        const char *id = tovra::stringOf(CMGetKey(ref, "InstanceID", &st));
        if (id == nullptr) {
            tovra::logAlert("%s: CMPI_RC_ERR_FAILED\n", name.c_str());
            st = makeStatus(CMPI_RC_ERR_FAILED);
        } else {
            auto level = std::find_if(std::begin(kLevels), std::end(kLevels),
                                      [&](const Level &l) { return std::strcmp(l.name, id) == 0; });
            if (level == std::end(kLevels)) {
                tovra::logAlert("%s: CMPI_RC_ERR_NOT_FOUND(ID = %s)\n", name.c_str(), id);
                st = makeStatus(CMPI_RC_ERR_NOT_FOUND);
            } else {
                returnLevel(rslt, tovra::nameSpaceOf(ref), *level, false, properties);
                st = okStatus();
            }
        }
        CMReturnDone(rslt);
        return makeStatus(st.rc);
    }

private:
    static CMPIStatus enumerate(const CMPIResult *rslt, const CMPIObjectPath *ref, const char **properties,
                                bool pathsOnly, const char *op) {
        // The levels are constants; the device is still opened, so a missing
        // adapter answers as in every module.
        return onDevice(rslt, ref, op, [&](int, CMPIStatus &) {
            const std::string ns = tovra::nameSpaceOf(ref);
            for (const Level &level : kLevels) returnLevel(rslt, ns, level, pathsOnly, properties);
        });
    }
};

}  // namespace

TOVRA_INSTANCE_PROVIDER(DefaultStorageSetting, DefaultStorageSetting)
