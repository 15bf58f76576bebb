// "Tovra_DiskDrive": every physical disk behind the adapter with its position,
// state, use and health data (SMART pairs for SATA, error counters for SAS).
#include "ModuleStamp.h"
#include "DiskInventory.h"
#include "EnclosureInventory.h"
#include "PassThroughMethods.h"
#include "RaidInventory.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <optional>

namespace {

constexpr const char *kSmartNames[9][2] = {
    {"SMARTReadErrorRateStatus", "SMARTReadErrorRateThreshold"},
    {"SMARTSpinupTimeStatus", "SMARTSpinupTimeThreshol"},
    {"SMARTReallocationCountStatus", "SMARTReallocationCountThreshol"},
    {"SMARTSeekErrorRateStatus", "SMARTSeekErrorRateThreshol"},
    {"SMARTSpinupRetriesStatus", "SMARTSpinupRetriesThreshol"},
    {"SMARTCalibrationRetriesStatus", "SMARTCalibrationRetriesThreshol"},
    {"DeviceTemperatureStatus", "DeviceTemperatureThreshol"},
    {"SSDReservedSpaceStatus", "SSDReservedSpaceThreshol"},
    {"SSDWearingIndicatorStatus", "SSDWearingIndicatorThreshol"},
};

// The firmware reports 20 SAS counters: six per error-counter page (read,
// write, verify) in the order of these names, then the non-medium error
// count, then the grown defect list. The primary defect list has no counter
// of its own and is left unset (kNoAttribute).
constexpr int kNoAttribute = -1;
struct SasCounter {
    const char *name;
    int attribute;
};
constexpr SasCounter kSasCounters[21] = {
    {"ReadErrorsRecoveredWDelay", 0},    {"ReadErrorsRecoveredWRetry", 1},
    {"ReadErrorsRecoveredWODelay", 2},   {"ReadErrorsRecovered", 3},
    {"ReadTotalBytes", 4},               {"ReadErrorsUnrecovered", 5},
    {"WriteErrorsRecoveredWDelay", 6},   {"WriteErrorsRecoveredWODelay", 7},
    {"WriteErrorsRecoveredWRetry", 8},   {"WriteErrorsRecovered", 9},
    {"WriteTotalBytes", 10},             {"WriteErrorsUnrecovered", 11},
    {"VerifyErrorsRecoveredWDelay", 12}, {"VerifyErrorsRecoveredWODelay", 13},
    {"VerifyErrorsRecoveredWRetry", 14}, {"VerifyErrorsRecovered", 15},
    {"VerifyTotalBytes", 16},            {"VerifyErrorsUnrecovered", 17},
    {"Non-MediumErrors", 18},            {"DefectPListBlockCount", kNoAttribute},
    {"DefectGListBlockCount", 19},
};

std::string diskTag(const DiskInfo &d) { return std::to_string(d.EnclosureNumber * 256 + d.SlotNumber); }

// OK for a working disk, Error for a failed one, Stopped for an offlined one.
CMPIUint16 operationalStatus(const DiskInfo &d) {
    if (std::strcmp(d.DeviceState, "FAILED") == 0) return 6;
    if (std::strcmp(d.DeviceState, "Offlined") == 0) return 10;
    return 2;
}

// Names of the RAID sets, read once per walk and only when a member disk needs one.
class RaidSetNames {
public:
    explicit RaidSetNames(int fd) : fd_(fd) {}
    const std::string &nameOf(unsigned number) {
        static const std::string none;
        if (number >= names_.size()) return none;
        if (!loaded_) load();
        return names_[number];
    }

private:
    void load() {
        loaded_ = true;
        for (unsigned n = 0; n < names_.size(); ++n) {
            CMPIStatus st = tovra::okStatus();
            RAIDSetInfo r{};
            if (EnumTovraRAIDsInfo(&st, fd_, static_cast<int>(n), &r)) names_[n] = r.RaidSetName;
        }
    }
    int fd_;
    bool loaded_ = false;
    std::array<std::string, 8> names_;
};

struct DiskDrive {
    static constexpr const char *kPrefix = "TovraDiskDriveProvider";
    static constexpr const char *kClass = "Tovra_DiskDrive";
    static constexpr const char *kSuperClass = "CIM_DiskDrive";
    static constexpr const char *kGetKey = "DeviceID";
    static inline const char *kKeys[] = {"CreationClassName", "DeviceID", "SystemCreationClassName", "SystemName",
                                            nullptr};
    static constexpr CMPICount kCapacity = tovra::kMaxSlotPositions;
    static constexpr bool kReadsController = true;
    // The disk provider's refusal names the slot provider; the wording is kept.
    static constexpr const char *kDeniedBy = "TovraDiskDriveSlotProvider";
    struct Ops;

    static CMPIStatus invokeMethod(const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *,
                                   const char *method, const CMPIArgs *in, CMPIArgs *) {
        return invokePassThroughMethod(tovra::ModuleState<DiskDrive>::_TovraBroker, ctx, rslt, method, in);
    }

    template <class Emit> static tovra::WalkResult walk(tovra::WalkContext &w, Emit &&emit) {
        const char *systemName = GetControllerSerialNumber(w.controller);
        ProceedingIdentify(w.status, w.fd);
        RaidSetNames raidSets(w.fd);
        WalkDisks(w.status, w.fd, [&](const EnclosureInfo &, DiskInfo &d) {
            if (d.Capacity == 0) return true;
            if (d.Usage != nullptr && d.Usage[0] == '\0') {
                std::snprintf(d.UsageExt, sizeof d.UsageExt, "%.16s", raidSets.nameOf(d.RaidSetNumber).c_str());
            }
            return emit(
                [&](tovra::KeyWriter &k) { k.deviceKeys(kClass, d.SerialNumber, systemName); },
                [&](tovra::PropertyWriter &p) { setProperties(p, d, systemName); });
        });
        return tovra::WalkResult::Complete;
    }

    static void setProperties(tovra::PropertyWriter &p, const DiskInfo &d, const char *systemName) {
        p.str("CreationClassName", kClass);
        p.str("DeviceID", d.SerialNumber);
        p.str("SystemCreationClassName", SystemCreationClassName);
        p.str("SystemName", systemName);
        p.str("DeviceType", d.DeviceType);
        if (d.DeviceType != nullptr && std::strcmp(d.DeviceType, "SATA") == 0) {
            for (int i = 0; i < 9; ++i) {
                p.u8(kSmartNames[i][0], d.u.sata.Smart[i].smStatus);
                p.u8(kSmartNames[i][1], d.u.sata.Smart[i].smThreshold);
            }
        } else {
            p.u16("RotationSpeed", d.u.sas.RotationRPM);
            p.u16("DeviceTemperature", d.u.sas.Temperature);
            for (const SasCounter &c : kSasCounters)
                if (c.attribute != kNoAttribute) p.u64(c.name, d.u.sas.Attribute[c.attribute]);
        }
        p.str("DeviceState", d.DeviceState);
        p.u8("EnclosureNumber", d.EnclosureNumber);
        p.str("Enc", d.Enc);
        p.str("FirmwareRevision", d.FirmRev);
        p.u32("MediaErrorCount", d.MediaErrorCount);
        p.str("ModelName", d.ModelName);
        p.u64("NumberOfBlocks", d.Capacity);
        p.u16Array("OperationalStatus", {operationalStatus(d)});
        p.u8("RaidSetNumber", d.RaidSetNumber);
        p.u8("SlotNumber", d.SlotNumber);
        p.str("Tag", diskTag(d));
        p.u32("TimeOutCount", d.TimeOutCount);
        p.str("Usage", d.Usage);
        p.str("UsageExt", d.UsageExt);
    }
};

using S = tovra::ModuleState<DiskDrive>;
using tovra::makeStatus;
using tovra::okStatus;

// Without "DeviceID", a disk is found by its position: "EnclosureNumber" and
// "SlotNumber" of the request count from 1 here, while the published
// properties count from 0.
struct DiskDrive::Ops : tovra::CachedInstanceOps<DiskDrive> {
    using Base = tovra::CachedInstanceOps<DiskDrive>;

    static CMPIStatus getInstance(const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *ref,
                                  const char **properties) {
        CMPIStatus keySt = okStatus();
        if (tovra::stringOf(CMGetKey(ref, "DeviceID", &keySt)) != nullptr && keySt.rc == CMPI_RC_OK)
            return Base::getInstance(ctx, rslt, ref, properties);

        const char *op = "GetInstance";
        const std::string name = tovra::opName(kPrefix, op);
        CMPIStatus st = okStatus();
        if (classMatches(ref, op)) {
            std::optional<uint64_t> enc = position(ref, "EnclosureNumber", name, st);
            std::optional<uint64_t> slot = enc ? position(ref, "SlotNumber", name, st) : std::nullopt;
            if (enc && slot && refreshIfStale(ctx, ref, st, op)) {
                findCached(op, rslt, st, [&](const CMPIInstance *inst) {
                    auto e = tovra::unsignedOf(CMGetProperty(inst, "EnclosureNumber", nullptr));
                    auto s = tovra::unsignedOf(CMGetProperty(inst, "SlotNumber", nullptr));
                    return e && s && *e + 1 == *enc && *s + 1 == *slot ? tovra::Visit::Found
                                                                       : tovra::Visit::NoMatch;
                });
            }
        }
        finish(rslt, op, st, "");
        return st;  // with the position's message, if any
    }

private:
    static std::optional<uint64_t> position(const CMPIObjectPath *ref, const char *key, const std::string &name,
                                            CMPIStatus &st) {
        CMPIStatus keySt = okStatus();
        std::optional<uint64_t> value = tovra::unsignedOf(CMGetKey(ref, key, &keySt));
        if (keySt.rc != CMPI_RC_OK || !value) {
            tovra::logAlert("%s: CMPI_RC_ERR_FAILED\n", name.c_str());
            st = makeStatus(CMPI_RC_ERR_FAILED);
            return std::nullopt;
        }
        if (*value == 0) {
            const std::string message = name + ": Error!! " + key + " is smaller than 1.\n";
            st = CMPIStatus{CMPI_RC_ERR_FAILED, CMNewString(S::_TovraBroker, message.c_str(), nullptr)};
            return std::nullopt;
        }
        return value;
    }
};

}  // namespace

TOVRA_INSTANCE_PROVIDER(DiskDrive, DiskDrive)
TOVRA_METHOD_PROVIDER(DiskDrive, DiskDrive)
