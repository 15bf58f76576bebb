// "Tovra_SoftwareIdentity": the adapter's firmware, boot code and driver, and
// the firmware of every present disk. "InstanceID" is "Tovra:<serial>:<what>"
// with the serial number of the element that runs the software: the
// controller's "Name" for the adapter's software, the disk's "DeviceID" for a
// disk's firmware.
#include "DiskInventory.h"
#include "ModuleStamp.h"
#include "SoftwareVersion.h"

#include <string>

namespace {

// Classifications values of the software kinds.
constexpr uint16_t kDriver = 2;
constexpr uint16_t kFirmware = 10;
constexpr uint16_t kBiosFCode = 11;

struct Software {
    std::string instanceId;
    const char *name;
    std::string elementName;
    std::string version;
    uint16_t classification;
    const char *manufacturer;  // null when unknown
};

std::string trimmed(const char *text) {
    std::string s(text);
    s.erase(s.find_last_not_of(" \t\r\n") + 1);
    return s;
}

void writeSoftware(tovra::PropertyWriter &p, const Software &s) {
    p.str("InstanceID", s.instanceId);
    p.str("Name", s.name);
    p.str("ElementName", s.elementName);
    p.str("VersionString", s.version);
    if (auto v = tovra::parseVersion(s.version.c_str())) {
        static const char *const fields[] = {"MajorVersion", "MinorVersion", "RevisionNumber", "BuildNumber"};
        for (unsigned i = 0; i < v->count; ++i) p.u16(fields[i], v->part[i]);
    }
    p.u16Array("Classifications", {s.classification});
    p.str("Manufacturer", s.manufacturer);
    p.boolean("IsEntity", true);
}

struct SoftwareIdentity {
    static constexpr const char *kPrefix = "TovraSoftwareIdentityProvider";
    static constexpr const char *kClass = "Tovra_SoftwareIdentity";
    static constexpr const char *kSuperClass = "CIM_SoftwareIdentity";
    static constexpr const char *kGetKey = "InstanceID";
    static inline const char *kKeys[] = {"InstanceID", nullptr};
    static constexpr CMPICount kCapacity = 3 + tovra::kMaxSlotPositions;
    static constexpr bool kReadsController = true;
    struct Ops;

    template <class Emit> static bool emitSoftware(Emit &emit, const Software &s) {
        return emit([&](tovra::KeyWriter &k) { k.str("InstanceID", s.instanceId); },
                    [&](tovra::PropertyWriter &p) { writeSoftware(p, s); });
    }

    template <class Emit> static tovra::WalkResult walk(tovra::WalkContext &w, Emit &&emit) {
        const ControllerInfo &c = *w.controller;
        const std::string adapter = std::string("Tovra:") + GetControllerSerialNumber(&c) + ":";
        if (!emitSoftware(emit, {adapter + "Firmware", "fw", "Adapter firmware", c.FirmVersion, kFirmware,
                                 c.VendorName}) ||
            !emitSoftware(emit, {adapter + "BootCode", "boot", "Adapter boot code", c.BootVersion, kBiosFCode,
                                 c.VendorName}))
            return tovra::WalkResult::Complete;
        SoftwareInfo driver{};
        if (EnumTovraDriverInfo(w.status, w.fd, &driver)) {
            const std::string name = trimmed(driver.name);
            if (!emitSoftware(emit, {adapter + "Driver", driver.name, "Driver " + name, trimmed(driver.version),
                                     kDriver, c.VendorName}))
                return tovra::WalkResult::Complete;
        }
        WalkDisks(w.status, w.fd, [&](const EnclosureInfo &, DiskInfo &d) {
            if (d.Capacity == 0) return true;
            return emitSoftware(emit, {std::string("Tovra:") + d.SerialNumber + ":Firmware", "fw",
                                       std::string("Firmware of disk ") + d.ModelName + " in " + d.Enc + " " + d.Slot,
                                       d.FirmRev, kFirmware, nullptr});
        });
        return tovra::WalkResult::Complete;
    }
};

using tovra::okStatus;

// Get first asks the adapter whether the identity exists, then answers from
// the cache by exact "InstanceID".
struct SoftwareIdentity::Ops : tovra::CachedInstanceOps<SoftwareIdentity> {
    static CMPIStatus getInstance(const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *ref,
                                  const char **) {
        const char *op = "GetInstance";
        CMPIStatus st = okStatus();
        std::string wanted;
        if (classMatches(ref, op)) {
            const char *text = nullptr;
            CMPIData key = CMGetKey(ref, kGetKey, &st);
            if (st.rc == CMPI_RC_OK) text = tovra::stringOf(key);
            if (text == nullptr) {
                tovra::logAlert("%s: CMPI_RC_ERR_FAILED\n", tovra::opName(kPrefix, op).c_str());
                return finish(rslt, op, st, wanted);
            }
            wanted = text;
            if (exists(wanted, st, op) && refreshIfStale(ctx, ref, st, op)) {
                findCached(op, rslt, st, [&](const CMPIInstance *inst) {
                    const char *value = tovra::stringOf(CMGetProperty(inst, kGetKey, nullptr));
                    if (value == nullptr) return tovra::Visit::Stop;
                    return wanted == value ? tovra::Visit::Found : tovra::Visit::NoMatch;
                });
            }
        }
        return finish(rslt, op, st, wanted);
    }

private:
    static bool exists(const std::string &id, CMPIStatus &st, const char *op) {
        tovra::DeviceFd device;
        if (!device.valid()) {
            tovra::logAlert("%s: CMPI_RC_ERR_FAILED(Fail to Open File)\n", tovra::opName(kPrefix, op).c_str());
            st = tovra::makeStatus(CMPI_RC_ERROR_SYSTEM);
            return false;
        }
        ControllerInfo controller{};
        EnclosureInfo enclosure{};
        SoftwareInfo software{};
        DiskInfo disk{};
        if (LookupSoftwareIdentityByID(&st, device.get(), id.c_str(), &controller, &enclosure, &software, &disk))
            return true;
        if (st.rc == CMPI_RC_OK) st = tovra::makeStatus(CMPI_RC_ERR_NOT_FOUND);
        return false;
    }
};

}  // namespace

TOVRA_INSTANCE_PROVIDER(SoftwareIdentity, SoftwareIdentity)
