// "Tovra_SASSATAPort": the adapter's SAS/SATA ports with their SAS address,
// negotiated link rate and the enclosures and disks cabled to each.
#include "DiskInventory.h"
#include "ModuleStamp.h"
#include "PortInventory.h"

#include <map>
#include <string>
#include <vector>

namespace {

// Standard values.
constexpr uint16_t kLinkOther = 1;
constexpr uint16_t kStatusOK = 2;
constexpr uint16_t kStatusDormant = 15;

struct Attached {
    std::string name;  // "Enc1 TV-1883 Backplan1.56"
    unsigned slots = 0;
    unsigned disks = 0;
};

std::string describe(const std::vector<Attached> &attached) {
    std::string text;
    for (const Attached &a : attached) {
        if (!text.empty()) text += ", ";
        text += a.name + " (" + std::to_string(a.disks) + " disks in " + std::to_string(a.slots) + " slots)";
    }
    return text.empty() ? "none" : text;
}

struct SASSATAPort {
    static constexpr const char *kPrefix = "TovraSASSATAPortProvider";
    static constexpr const char *kClass = "Tovra_SASSATAPort";
    static constexpr const char *kSuperClass = "CIM_SASSATAPort";
    static constexpr const char *kGetKey = "DeviceID";
    static inline const char *kKeys[] = {"CreationClassName", "DeviceID", "SystemCreationClassName", "SystemName",
                                            nullptr};
    static constexpr CMPICount kCapacity = 255;
    static constexpr bool kReadsController = true;
    using Ops = tovra::CachedInstanceOps<SASSATAPort>;

    template <class Emit> static tovra::WalkResult walk(tovra::WalkContext &w, Emit &&emit) {
        const char *systemName = GetControllerSerialNumber(w.controller);
        AdapterPortInfo ports{};
        if (!EnumTovraSASPortInfo(w.status, w.fd, &ports)) return tovra::WalkResult::Abort;
        // Enclosures and their present disks, per port.
        std::map<unsigned, Attached> byEnclosure;
        WalkDisks(w.status, w.fd, [&](const EnclosureInfo &e, DiskInfo &d) {
            Attached &a = byEnclosure[e.EnclosureNumber];
            a.name = "Enc" + std::to_string(e.EnclosureNumber + 1) + " " + e.EnclosureNameRev;
            a.slots = e.EncSlots;
            if (d.Capacity != 0) ++a.disks;
            return true;
        });
        std::vector<std::vector<Attached>> perPort(ports.Ports);
        for (const auto &[enc, a] : byEnclosure) perPort[tovra::portOfEnclosure(enc, ports.Ports)].push_back(a);

        const std::string address = tovra::sasAddressText(ports.SasAddress);
        const uint64_t rate = tovra::linkRateBitsPerSecond(ports.LinkRateCode);
        for (unsigned i = 0; i < ports.Ports; ++i) {
            const std::string id = "Port" + std::to_string(i + 1);
            const bool linked = !perPort[i].empty();
            const bool more = emit(
                [&](tovra::KeyWriter &k) { k.deviceKeys(kClass, id.c_str(), systemName); },
                [&](tovra::PropertyWriter &p) {
                    p.str("CreationClassName", kClass);
                    p.str("DeviceID", id);
                    p.str("SystemCreationClassName", SystemCreationClassName);
                    p.str("SystemName", systemName);
                    p.str("ElementName", "SAS port " + std::to_string(i + 1));
                    p.u16("PortNumber", static_cast<uint16_t>(i + 1));
                    p.u8("PhyNumber", static_cast<uint8_t>(i));
                    p.u16("LinkTechnology", kLinkOther);
                    p.str("OtherLinkTechnology", "SAS");
                    p.str("SASAddress", address);
                    p.str("PermanentAddress", address);
                    p.u64("MaxSpeed", rate);
                    p.u64("Speed", linked ? rate : 0);
                    p.str("LinkRate", linked ? tovra::linkRateText(ports.LinkRateCode) : "No link");
                    p.str("AttachedDevice", describe(perPort[i]));
                    p.u16Array("OperationalStatus", {linked ? kStatusOK : kStatusDormant});
                });
            if (!more) break;
        }
        return tovra::WalkResult::Complete;
    }
};

}  // namespace

TOVRA_INSTANCE_PROVIDER(SASSATAPort, SASSATAPort)
