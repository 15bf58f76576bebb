// "Tovra_RAIDControllerSystem": the adapter itself, the scoping system of
// every other device (its Name is their SystemName). One instance.
#include "ControllerSettingsMethods.h"
#include "ModuleStamp.h"

#include <cstdio>

namespace {

std::string dotted4(const unsigned char *b) {
    char text[16];
    std::snprintf(text, sizeof text, "%d.%d.%d.%d", b[0], b[1], b[2], b[3]);
    return text;
}

// Lower-case hexadecimal separated by dots, as the adapter's tools print it.
std::string macText(const unsigned char *b) {
    char text[18];
    std::snprintf(text, sizeof text, "%02x.%02x.%02x.%02x.%02x.%02x", b[0], b[1], b[2], b[3], b[4], b[5]);
    return text;
}

struct RAIDComputerSystem {
    static constexpr const char *kPrefix = "TovraRAIDComputerSystemProvider";
    static constexpr const char *kClass = "Tovra_RAIDControllerSystem";
    static constexpr const char *kSuperClass = "CIM_ComputerSystem";
    static constexpr const char *kGetKey = "Name";
    static inline const char *kKeys[] = {"CreationClassName", "Name", nullptr};
    static constexpr CMPICount kCapacity = 1;
    static constexpr bool kReadsController = true;
    using Ops = tovra::CachedInstanceOps<RAIDComputerSystem>;

    static CMPIStatus invokeMethod(const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *,
                                   const char *method, const CMPIArgs *in, CMPIArgs *out) {
        using S = tovra::ModuleState<RAIDComputerSystem>;
        return tovra::invokeControllerSettingsMethod({S::_TovraBroker, ctx, rslt, method, in, out, [] {
                                                          S::SetInstTime.store(0);
                                                          S::SetObjTime.store(0);
                                                      }});
    }

    template <class Emit> static tovra::WalkResult walk(tovra::WalkContext &w, Emit &&emit) {
        const ControllerInfo &c = *w.controller;
        emit(
            [&](tovra::KeyWriter &k) {
                k.str("CreationClassName", kClass);
                k.str("Name", c.SerialNumber);
            },
            [&](tovra::PropertyWriter &p) {
                p.str("CreationClassName", kClass);
                p.str("Name", c.SerialNumber);
                p.str("SerialNumber", c.SerialNumber);
                p.str("ModelName", c.ModelFullName);
                p.str("VendorName", c.VendorName);
                p.str("FirmVersion", c.FirmVersion);
                p.str("BootVersion", c.BootVersion);
                p.str("LocalIP", dotted4(c.LocalIp));
                p.str("CurrentIP", dotted4(c.CurrentIp));
                p.str("MAC", macText(c.MacAddress));
                p.u32("ICacheSize", c.ICache);
                p.u32("DCacheSize", c.DCache);
                p.u32("MemorySize", c.MemorySize);
                p.u32("MemorySpeed", c.MemorySpeed);
                p.str("Description",
                      "A class derived from ComputerSystem that represents an Tovra SAS RAID Adapter.");
                p.u16Array("OperationalStatus", {2});
            });
        return tovra::WalkResult::Complete;
    }
};

}  // namespace

TOVRA_INSTANCE_PROVIDER(RAIDComputerSystem, RAIDComputerSystem)
TOVRA_METHOD_PROVIDER(RAIDComputerSystem, RAIDComputerSystem)
