// "Tovra_Battery": the adapter's cache backup battery, read with the battery
// status request. An adapter without a battery publishes no instance.
#include "ModuleStamp.h"
#include "SensorInventory.h"

namespace {

// BatteryStatus: the standard charge states from the firmware's status and
// charge level.
uint16_t batteryStatusOf(const BatteryInfo &b) {
    const bool low = b.Charge <= 25, critical = b.Charge <= 10;
    switch (b.Status) {
        case 0: return b.Charge >= 100 ? 3 : critical ? 5 : low ? 4 : 11;  // Fully Charged, Critical, Low, Partially
        case 1: return critical ? 9 : low ? 8 : 6;                         // Charging (and Critical, and Low)
        default: return 2;                                                 // Unknown
    }
}

struct Battery {
    static constexpr const char *kPrefix = "TovraBatteryProvider";
    static constexpr const char *kClass = "Tovra_Battery";
    static constexpr const char *kSuperClass = "CIM_Battery";
    static constexpr const char *kGetKey = "DeviceID";
    static inline const char *kKeys[] = {"CreationClassName", "DeviceID", "SystemCreationClassName", "SystemName",
                                            nullptr};
    static constexpr CMPICount kCapacity = 1;
    static constexpr bool kReadsController = true;
    using Ops = tovra::CachedInstanceOps<Battery>;

    template <class Emit> static tovra::WalkResult walk(tovra::WalkContext &w, Emit &&emit) {
        const char *systemName = GetControllerSerialNumber(w.controller);
        BatteryInfo b{};
        if (!EnumTovraBatteryInfo(w.status, w.fd, 0, &b) || !b.Present) return tovra::WalkResult::Complete;
        const bool failed = b.Status == 2;
        emit([&](tovra::KeyWriter &k) { k.deviceKeys(kClass, GetBatteryDeviceID(&b), systemName); },
             [&](tovra::PropertyWriter &p) {
                 p.str("CreationClassName", kClass);
                 p.str("DeviceID", GetBatteryDeviceID(&b));
                 p.str("SystemCreationClassName", SystemCreationClassName);
                 p.str("SystemName", systemName);
                 p.str("ElementName", "Cache backup battery");
                 p.str("BatteryState", tovra::batteryStatusText(b.Status));
                 p.u16("BatteryStatus", batteryStatusOf(b));
                 p.u8("ChargeLevel", b.Charge);
                 p.u16("EstimatedChargeRemaining", b.Charge);
                 p.u32("Voltage", b.Millivolts);
                 p.s16("Temperature", b.Temperature);
                 p.u16Array("OperationalStatus", {static_cast<uint16_t>(failed ? 6 : 2)});  // Error or OK
             });
        return tovra::WalkResult::Complete;
    }
};

}  // namespace

TOVRA_INSTANCE_PROVIDER(Battery, Battery)
