// "Tovra_PortController": the one adapter's port controller with its driver,
// PCI link and SAS address. Its "DeviceID" is the controller's serial number,
// the "Tag" of the adapter card's physical package.
#include "ModuleStamp.h"
#include "PortInventory.h"

#include <string>

namespace {

// The driver's texts come untrimmed; published without trailing blanks.
std::string trimmed(const char *text) {
    std::string s(text);
    s.erase(s.find_last_not_of(" \t\r\n") + 1);
    return s;
}

struct PortController {
    static constexpr const char *kPrefix = "TovraPortControllerProvider";
    static constexpr const char *kClass = "Tovra_PortController";
    static constexpr const char *kSuperClass = "CIM_PortController";
    static constexpr const char *kGetKey = "DeviceID";
    static inline const char *kKeys[] = {"CreationClassName", "DeviceID", "SystemCreationClassName", "SystemName",
                                            nullptr};
    static constexpr CMPICount kCapacity = 1;
    static constexpr bool kReadsController = false;
    using Ops = tovra::CachedInstanceOps<PortController>;

    template <class Emit> static tovra::WalkResult walk(tovra::WalkContext &w, Emit &&emit) {
        ControllerInfo c{};
        if (!EnumTovraPortControllerInfo(w.status, w.fd, &c)) return tovra::WalkResult::Abort;
        // Driver, PCI link and ports are published when they can be read.
        SoftwareInfo driver{};
        PCIInfo pci{};
        AdapterPortInfo ports{};
        const bool haveDriver = EnumTovraDriverInfo(w.status, w.fd, &driver);
        const bool havePci = EnumTovraPCIInfo(w.status, w.fd, &pci);
        const bool havePorts = EnumTovraSASPortInfo(w.status, w.fd, &ports);
        const char *serial = GetControllerSerialNumber(&c);
        emit([&](tovra::KeyWriter &k) { k.deviceKeys(kClass, serial, serial); },
             [&](tovra::PropertyWriter &p) {
                 p.str("CreationClassName", kClass);
                 p.str("DeviceID", serial);
                 p.str("SystemCreationClassName", SystemCreationClassName);
                 p.str("SystemName", serial);
                 p.str("Name", GetControllerModelFullName(&c));
                 p.str("ElementName", GetControllerModelFullName(&c));
                 p.str("Description", "The adapter's SAS host port controller.");
                 p.str("ModelName", GetControllerModelFullName(&c));
                 p.str("VendorName", c.VendorName);
                 p.str("SerialNumber", serial);
                 p.str("FirmwareVersion", c.FirmVersion);
                 p.str("BootVersion", c.BootVersion);
                 p.str("DriverName", haveDriver ? trimmed(driver.name).c_str() : nullptr);
                 p.str("DriverVersion", haveDriver ? trimmed(driver.version).c_str() : nullptr);
                 p.str("PCIBusWidth", havePci ? trimmed(pci.width).c_str() : nullptr);
                 p.str("PCILinkSpeed", havePci ? trimmed(pci.speed).c_str() : nullptr);
                 p.str("SASAddress", havePorts ? tovra::sasAddressText(ports.SasAddress).c_str() : nullptr);
                 p.u16("ControllerType", 1);  // Other
                 p.str("OtherControllerType", "SAS RAID");
                 p.str("ProtocolDescription", "SAS/SATA");
                 p.u16Array("OperationalStatus", {2});
             });
        return tovra::WalkResult::Complete;
    }
};

}  // namespace

TOVRA_INSTANCE_PROVIDER(PortController, PortController)
