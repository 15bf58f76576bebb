#include "Inventory.h"

#include "Format.h"
#include "Snapshot.h"

#include <cstdio>
#include <iomanip>
#include <map>
#include <sstream>

namespace cimhost::cli {
namespace {

// Decimal units, as disk capacities are sold.
std::string bytes(uint64_t n) {
    static const char *units[] = {"B", "KB", "MB", "GB", "TB", "PB"};
    double v = static_cast<double>(n);
    int u = 0;
    while (v >= 1000 && u < 5) v /= 1000, ++u;
    char out[32];
    std::snprintf(out, sizeof out, u == 0 ? "%.0f %s" : "%.1f %s", v, units[u]);
    return out;
}

using Classes = Snapshot;

Classes gather(Host &host) {
    return cli::gather(host, {{kTovraNamespace, "Tovra_RAIDControllerSystem"}, {kTovraNamespace, "Tovra_PortController"},
                              {kTovraNamespace, "Tovra_SoftwareIdentity"}, {kTovraNamespace, "Tovra_Battery"},
                              {kTovraNamespace, "Tovra_SASSATAPort"}, {kTovraNamespace, "Tovra_PhysicalPackage"},
                              {kTovraNamespace, "Tovra_Chassis"}, {kTovraNamespace, "Tovra_DiskDriveSlot"},
                              {kTovraNamespace, "Tovra_DiskDrive"}, {kTovraNamespace, "Tovra_DiskExtent"},
                              {kTovraNamespace, "Tovra_StoragePool"}, {kTovraNamespace, "Tovra_StorageVolume"},
                              {kTovraNamespace, "Tovra_DefaultStorageSetting"}, {kTovraNamespace, "Tovra_EventLog"},
                              {kInteropNamespace, "Tovra_RegisteredProfile"}});
}

void row(std::ostream &out, const std::vector<std::pair<int, std::string>> &cells) {
    std::ostringstream line;
    line << "   ";
    for (const auto &[width, cell] : cells) line << ' ' << std::left << std::setw(width) << cell;
    std::string text = line.str();
    text.erase(text.find_last_not_of(' ') + 1);
    out << text << '\n';
}

void printController(std::ostream &out, const Classes &c) {
    for (const InstanceV &s : c.of("Tovra_RAIDControllerSystem")) {
        out << "Controller " << text(s, "ModelName") << "  serial " << text(s, "SerialNumber") << "  ("
            << text(s, "VendorName") << ")\n";
        out << "    firmware " << text(s, "FirmVersion") << ", boot " << text(s, "BootVersion") << '\n';
        out << "    address " << text(s, "CurrentIP") << " (configured " << text(s, "LocalIP") << "), MAC "
            << text(s, "MAC") << '\n';
        out << "    memory " << number(s, "MemorySize") << " MB at " << number(s, "MemorySpeed") << " MHz\n";
    }
}

void printProfile(std::ostream &out, const Classes &c) {
    for (const InstanceV &p : c.of("Tovra_RegisteredProfile"))
        out << "    registered profile \"" << text(p, "RegisteredName") << "\" " << text(p, "RegisteredVersion")
            << " (" << text(p, "InstanceID") << ")\n";
}

void printPortController(std::ostream &out, const Classes &c) {
    for (const InstanceV &p : c.of("Tovra_PortController")) {
        out << "    port controller " << text(p, "DeviceID") << ": driver " << text(p, "DriverName") << ' '
            << text(p, "DriverVersion") << ", PCI link " << text(p, "PCIBusWidth") << " at "
            << text(p, "PCILinkSpeed") << ", SAS address " << text(p, "SASAddress") << '\n';
        const size_t packages = c.of("Tovra_PhysicalPackage").size();
        out << "    physical packages: the adapter card and " << (packages > 0 ? packages - 1 : 0) << " disks\n";
    }
}

void printBattery(std::ostream &out, const Classes &c) {
    out << "\nCache backup battery\n";
    if (c.of("Tovra_Battery").empty()) out << "    not present\n";
    for (const InstanceV &b : c.of("Tovra_Battery")) {
        const Value *t = b.property("Temperature");
        const std::string temperature = t != nullptr && !t->isNull() ? std::to_string(t->asSigned()) : "?";
        char volts[32];
        std::snprintf(volts, sizeof volts, "%.3f V", static_cast<double>(number(b, "Voltage")) / 1000);
        out << "    " << text(b, "DeviceID") << ": " << text(b, "BatteryState") << ", charge " << number(b, "ChargeLevel")
            << " %, " << temperature << " C, " << volts << '\n';
    }
}

void printSoftware(std::ostream &out, const Classes &c) {
    out << "\nSoftware versions\n";
    // Disk firmware is grouped by version: how many disks run each.
    std::map<std::string, std::vector<std::string>> diskFirmware;
    for (const InstanceV &s : c.of("Tovra_SoftwareIdentity")) {
        const std::string id = text(s, "InstanceID");
        if (text(s, "ElementName").rfind("Firmware of disk", 0) == 0) {
            diskFirmware[text(s, "VersionString")].push_back(id.substr(6, id.rfind(':') - 6));
            continue;
        }
        out << "    " << std::left << std::setw(22) << text(s, "ElementName") << ' ' << text(s, "VersionString")
            << '\n';
    }
    for (const auto &[version, disks] : diskFirmware) {
        out << "    " << std::left << std::setw(22) << "Disk firmware" << ' ' << version << " on " << disks.size()
            << (disks.size() == 1 ? " disk:" : " disks:");
        for (const std::string &d : disks) out << ' ' << d;
        out << '\n';
    }
}

void printPorts(std::ostream &out, const Classes &c) {
    out << "\nSAS/SATA ports\n";
    row(out, {{5, "Port"}, {17, "SAS address"}, {12, "Link"}, {0, "Attached"}});
    for (const InstanceV &p : c.of("Tovra_SASSATAPort"))
        row(out, {{5, std::to_string(number(p, "PortNumber"))}, {17, text(p, "SASAddress")},
                  {12, text(p, "LinkRate")}, {0, text(p, "AttachedDevice")}});
}

// "12V 12.08 V, Fan 1 5400 RPM, Ambient 25.5 C"
std::string sensorText(const InstanceV &chassis) {
    const auto &names = list(chassis, "SensorNames");
    const auto &kinds = list(chassis, "SensorTypes");
    const auto &readings = list(chassis, "SensorReadings");
    std::string out;
    for (size_t i = 0; i < names.size() && i < kinds.size() && i < readings.size(); ++i) {
        char reading[48];
        const double v = readings[i].asReal();
        switch (kinds[i].asUnsigned()) {
            case 1: std::snprintf(reading, sizeof reading, "%.0f RPM", v); break;
            case 2: std::snprintf(reading, sizeof reading, "%.2f V", v); break;
            case 3: std::snprintf(reading, sizeof reading, "%.1f C", v); break;
            default: std::snprintf(reading, sizeof reading, "%s", v != 0 ? "on" : "off"); break;
        }
        if (!out.empty()) out += ", ";
        out += names[i].asString() + " " + reading;
    }
    return out;
}

void printEnclosures(std::ostream &out, const Classes &c) {
    // Slots and disks share the tag "enclosure * 256 + slot".
    std::map<uint64_t, const InstanceV *> disks;
    for (const InstanceV &d : c.of("Tovra_DiskDrive")) disks[std::stoull("0" + text(d, "Tag"))] = &d;
    std::map<uint64_t, std::vector<const InstanceV *>> slotsByEnclosure;
    for (const InstanceV &s : c.of("Tovra_DiskDriveSlot"))
        slotsByEnclosure[std::stoull("0" + text(s, "Tag")) / 256].push_back(&s);

    out << "\nEnclosures and disks\n";
    for (const auto &[enc, slots] : slotsByEnclosure) {
        out << "  Enclosure " << enc + 1 << ": " << text(*slots.front(), "EnclosureNameRev") << " (" << slots.size()
            << " slots)\n";
        for (const InstanceV &ch : c.of("Tovra_Chassis"))
            if (text(ch, "ElementName") == "Enc" + std::to_string(enc + 1) && !list(ch, "SensorNames").empty())
                out << "    sensors: " << sensorText(ch) << '\n';
        row(out, {{5, "Slot"}, {20, "Serial"}, {5, "Type"}, {24, "Model"}, {9, "Capacity"}, {9, "State"},
                  {24, "Usage"}, {8, "Firmware"}});
        for (const InstanceV *slot : slots) {
            const uint64_t tag = std::stoull("0" + text(*slot, "Tag"));
            const std::string position = std::to_string(number(*slot, "Number") + 1);
            auto d = disks.find(tag);
            if (d == disks.end()) {
                row(out, {{5, position}, {20, "(empty)"}});
                continue;
            }
            const InstanceV &disk = *d->second;
            std::string usage = text(disk, "Usage");
            if (usage.empty()) usage = "member of " + text(disk, "UsageExt");
            const std::string state = text(disk, "DeviceState").empty() ? "Normal" : text(disk, "DeviceState");
            row(out, {{5, position}, {20, text(disk, "DeviceID")}, {5, text(disk, "DeviceType")},
                      {24, text(disk, "ModelName")}, {9, bytes(number(disk, "NumberOfBlocks"))}, {9, state},
                      {24, usage}, {8, text(disk, "FirmwareRevision")}});
        }
    }
}

void printExtents(std::ostream &out, const Classes &c) {
    out << "\nDisk extents\n";
    row(out, {{20, "Disk"}, {4, "Enc"}, {10, "Capacity"}, {8, "RAID set"}});
    for (const InstanceV &e : c.of("Tovra_DiskExtent")) {
        const uint64_t set = number(e, "RaidSetNumber");
        row(out, {{20, text(e, "DeviceID")}, {4, std::to_string(number(e, "EnclosureNumber") + 1)},
                  {10, bytes(number(e, "NumberOfBlocks"))}, {8, set == 0xFF ? "-" : std::to_string(set + 1)}});
    }
}

void printPoolsAndVolumes(std::ostream &out, const Classes &c) {
    out << "\nStorage pools (RAID sets)\n";
    row(out, {{4, "No."}, {17, "Name"}, {12, "State"}, {8, "Members"}, {10, "Capacity"}, {10, "Free raw"},
              {7, "Volumes"}});
    for (const InstanceV &p : c.of("Tovra_StoragePool"))
        row(out, {{4, std::to_string(number(p, "RaidSetNumber") + 1)}, {17, text(p, "InstanceID")},
                  {12, text(p, "RAIDState")}, {8, std::to_string(number(p, "MemberDisks"))},
                  {10, bytes(number(p, "Capacity"))}, {10, bytes(number(p, "FreeRawCapacity"))},
                  {7, std::to_string(number(p, "Volumes"))}});

    out << "\nStorage volumes\n";
    row(out, {{4, "No."}, {17, "Name"}, {5, "RAID"}, {10, "Capacity"}, {8, "Stripe"}, {12, "State"}, {5, "Pool"},
              {14, "Cache"}, {11, "Ch/Id/Lun"}});
    for (const InstanceV &v : c.of("Tovra_StorageVolume"))
        row(out, {{4, std::to_string(number(v, "VolumeNo"))}, {17, text(v, "DeviceID")},
                  {5, std::to_string(number(v, "RAIDLevel"))}, {10, bytes(number(v, "Capacity"))},
                  {8, std::to_string(number(v, "StripeSize")) + " KB"}, {12, text(v, "VolumeState")},
                  {5, std::to_string(number(v, "RaidSetNumber") + 1)}, {14, text(v, "CacheMode")},
                  {11, std::to_string(number(v, "Channel")) + "/" + std::to_string(number(v, "ID")) + "/" +
                           std::to_string(number(v, "Lun"))}});
}

void printSettings(std::ostream &out, const Classes &c) {
    out << "\nDefault storage settings\n";
    for (const InstanceV &s : c.of("Tovra_DefaultStorageSetting"))
        out << "    " << std::left << std::setw(8) << text(s, "InstanceID") << ' ' << text(s, "Description") << '\n';
}

// The newest events only: the whole log is in the JSON report and in the instance.
void printEvents(std::ostream &out, const Classes &c) {
    constexpr size_t kShown = 10;
    for (const InstanceV &log : c.of("Tovra_EventLog")) {
        const std::vector<Value> &events = list(log, "EventRecords");
        out << "\nEvent log (" << number(log, "Events") << " events";
        if (events.size() > kShown) out << ", newest " << kShown << " shown";
        out << ")\n";
        for (size_t i = 0; i < events.size() && i < kShown; ++i) out << "    " << events[i].toText() << '\n';
    }
}

}  // namespace

int printInventory(Host &host, std::ostream &out, bool json) {
    Classes c = gather(host);
    if (json) {
        Json doc = Json::object();
        // Every class as {"instances": [...]}, an empty one included, or its error.
        for (const auto &[cls, reply] : c.replies) {
            if (!reply.ok()) {
                doc[cls] = toJson(reply);
                continue;
            }
            Json instances = Json::array();
            for (const InstanceV &i : reply.instances) instances.push_back(toJson(i));
            doc[cls] = {{"instances", std::move(instances)}};
        }
        out << doc.dump(2) << '\n';
    } else {
        printController(out, c);
        printProfile(out, c);
        printPortController(out, c);
        printSoftware(out, c);
        printBattery(out, c);
        printPorts(out, c);
        printEnclosures(out, c);
        printExtents(out, c);
        printPoolsAndVolumes(out, c);
        printSettings(out, c);
        printEvents(out, c);
        for (const auto &[cls, reply] : c.replies)
            if (!reply.ok()) out << "\n" << cls << ": " << errorText(reply) << '\n';
    }
    return c.failed ? 1 : 0;
}

}  // namespace cimhost::cli
