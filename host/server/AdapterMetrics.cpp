#include "AdapterMetrics.h"

#include "Host.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <map>
#include <optional>
#include <span>

namespace cimserver {

using cimhost::InstanceV;
using cimhost::Value;

namespace {

constexpr const char *kNs = "tovra/cimv2";

// ---- reading properties -------------------------------------------------------

// A real32 as the decimal it was written as (12.08, not 12.079999923706055).
double realOf(const Value &v) {
    if (v.type() != CMPI_real32) return v.asReal();
    char text[32];
    auto written = std::to_chars(text, text + sizeof text, static_cast<float>(v.asReal()));
    double widened = v.asReal();
    std::from_chars(text, written.ptr, widened);
    return widened;
}

std::optional<double> numberOf(const Value *v) {
    if (v == nullptr || v->isNull() || v->isArray()) return std::nullopt;
    const CMPIType t = v->type();
    if (t == CMPI_real32 || t == CMPI_real64) return realOf(*v);
    if (cimhost::isSignedType(t)) return static_cast<double>(v->asSigned());
    if (cimhost::isUnsignedType(t)) return static_cast<double>(v->asUnsigned());
    return std::nullopt;
}

std::optional<double> numberOf(const InstanceV &inst, const char *name) { return numberOf(inst.property(name)); }

std::string textOf(const InstanceV &inst, const char *name) {
    const Value *v = inst.property(name);
    return v != nullptr && !v->isNull() && cimhost::isTextType(v->type()) ? v->asString() : std::string();
}

// A position or number for a label; empty when the property holds none.
std::string counted(const InstanceV &inst, const char *name, uint64_t from) {
    auto n = numberOf(inst, name);
    return n && *n >= 0 && *n < 1e15 ? std::to_string(static_cast<uint64_t>(*n) + from) : std::string();
}

// Counted from 1 ("Enc1", "Slot1" as the provider names them).
std::string fromOne(const InstanceV &inst, const char *name) { return counted(inst, name, 1); }
std::string plain(const InstanceV &inst, const char *name) { return counted(inst, name, 0); }

// A state text as a state name: lower case, spaces as '_'.
std::string stateName(std::string_view text) {
    std::string out;
    for (char c : text) out += c == ' ' ? '_' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

// ---- what each component publishes ---------------------------------------------

struct GaugeOf {
    MetricFamily family;
    const char *property;
    double scale = 1;
};

// A state text maps to its state name; an empty text to emptyIs, a text not
// among the states to "unknown".
struct StateOf {
    MetricFamily family;
    const char *property;
    std::string_view emptyIs;
    std::span<const std::string_view> states;
};

struct LabelFrom {
    std::string_view label;
    const char *property;
};

struct InfoOf {
    MetricFamily family;
    std::span<const LabelFrom> labels;
};

struct Component {
    const char *className;
    Labels (*keys)(const InstanceV &);
    std::span<const GaugeOf> gauges;
    std::span<const StateOf> states;
    std::span<const InfoOf> infos;
};

// Disks: by position, as the provider names them (Enc1, Slot1).
Labels diskKeys(const InstanceV &d) { return {{"enclosure", fromOne(d, "EnclosureNumber")}, {"slot", fromOne(d, "SlotNumber")}}; }
constexpr GaugeOf kDiskGauges[] = {
    {{"tovra_disk_capacity_bytes", MetricType::Gauge, "bytes", "Disk capacity"}, "NumberOfBlocks"},
    {{"tovra_disk_temperature_celsius", MetricType::Gauge, "celsius", "Disk temperature (SAS disks)"}, "DeviceTemperature"},
    {{"tovra_disk_media_errors", MetricType::Counter, "", "Media errors the adapter counted on the disk"}, "MediaErrorCount"},
    {{"tovra_disk_timeouts", MetricType::Counter, "", "Command time-outs the adapter counted on the disk"}, "TimeOutCount"},
};
constexpr std::string_view kDiskStates[] = {"normal", "failed", "offlined", "unknown"};
constexpr std::string_view kDiskUsages[] = {"member", "free",        "hot_spare", "pass_through",
                                            "failed", "unavailable", "offlined",  "unknown"};
constexpr StateOf kDiskStateSets[] = {
    {{"tovra_disk_state", MetricType::StateSet, "", "Disk state"}, "DeviceState", "normal", kDiskStates},
    {{"tovra_disk_usage", MetricType::StateSet, "", "What the disk is used for"}, "Usage", "member", kDiskUsages},
};
constexpr LabelFrom kDiskInfoLabels[] = {
    {"serial", "DeviceID"}, {"model", "ModelName"}, {"firmware", "FirmwareRevision"}, {"type", "DeviceType"}};
constexpr InfoOf kDiskInfo[] = {{{"tovra_disk", MetricType::Info, "", "Disk identity"}, kDiskInfoLabels}};

// RAID sets: by number, as in their names ("Raid Set # 000") and the methods.
Labels raidSetKeys(const InstanceV &p) { return {{"raid_set", plain(p, "RaidSetNumber")}}; }
constexpr GaugeOf kRaidSetGauges[] = {
    {{"tovra_raid_set_capacity_bytes", MetricType::Gauge, "bytes", "RAID set capacity"}, "Capacity"},
    {{"tovra_raid_set_free_bytes", MetricType::Gauge, "bytes", "Raw capacity of the RAID set not given to volumes"},
     "FreeRawCapacity"},
    {{"tovra_raid_set_member_disks", MetricType::Gauge, "", "Member disks of the RAID set"}, "MemberDisks"},
    {{"tovra_raid_set_volumes", MetricType::Gauge, "", "Volumes on the RAID set"}, "Volumes"},
};
constexpr std::string_view kRaidSetStates[] = {"normal",   "degraded", "rebuilding", "incomplete", "migrating",
                                               "init",     "checking", "cloning",    "unknown"};
constexpr StateOf kRaidSetStateSets[] = {
    {{"tovra_raid_set_state", MetricType::StateSet, "", "RAID set state"}, "RAIDState", "unknown", kRaidSetStates}};

// Volumes: by volume number.
Labels volumeKeys(const InstanceV &v) { return {{"volume", plain(v, "VolumeNo")}}; }
constexpr GaugeOf kVolumeGauges[] = {
    {{"tovra_volume_capacity_bytes", MetricType::Gauge, "bytes", "Volume capacity"}, "Capacity"},
};
constexpr std::string_view kVolumeStates[] = {"normal",       "degraded",  "failed",       "rebuilding",
                                              "migrating",    "need_migrate", "initializing", "need_init",
                                              "need_rebuild", "locked",    "unknown"};
constexpr StateOf kVolumeStateSets[] = {
    {{"tovra_volume_state", MetricType::StateSet, "", "Volume state"}, "VolumeState", "unknown", kVolumeStates}};
constexpr LabelFrom kVolumeInfoLabels[] = {{"raid_set", "RaidSetNumber"}, {"raid_level", "RAIDLevel"}};
constexpr InfoOf kVolumeInfo[] = {{{"tovra_volume", MetricType::Info, "", "Volume layout"}, kVolumeInfoLabels}};

// The cache backup battery.
Labels batteryKeys(const InstanceV &b) { return {{"battery", labelText(textOf(b, "DeviceID"))}}; }
constexpr GaugeOf kBatteryGauges[] = {
    {{"tovra_battery_charge_ratio", MetricType::Gauge, "ratio", "Battery charge, 1 when full"}, "ChargeLevel", 0.01},
    {{"tovra_battery_voltage_volts", MetricType::Gauge, "volts", "Battery voltage"}, "Voltage", 0.001},
    {{"tovra_battery_temperature_celsius", MetricType::Gauge, "celsius", "Battery temperature"}, "Temperature"},
};
constexpr std::string_view kBatteryStates[] = {"normal", "charging", "failed", "unknown"};
constexpr StateOf kBatteryStateSets[] = {
    {{"tovra_battery_state", MetricType::StateSet, "", "Battery state"}, "BatteryState", "unknown", kBatteryStates}};

const Component kComponents[] = {
    {"Tovra_DiskDrive", diskKeys, kDiskGauges, kDiskStateSets, kDiskInfo},
    {"Tovra_StoragePool", raidSetKeys, kRaidSetGauges, kRaidSetStateSets, {}},
    {"Tovra_StorageVolume", volumeKeys, kVolumeGauges, kVolumeStateSets, kVolumeInfo},
    {"Tovra_Battery", batteryKeys, kBatteryGauges, kBatteryStateSets, {}},
};

// Enclosure sensors, one family per kind (the SensorTypes code).
struct SensorKind {
    uint64_t code;
    MetricFamily family;
};
constexpr SensorKind kSensorKinds[] = {
    {1, {"tovra_sensor_fan_speed_rpm", MetricType::Gauge, "rpm", "Fan speed in revolutions per minute"}},
    {2, {"tovra_sensor_voltage_volts", MetricType::Gauge, "volts", "Voltage sensor reading"}},
    {3, {"tovra_sensor_temperature_celsius", MetricType::Gauge, "celsius", "Temperature sensor reading"}},
    {4, {"tovra_sensor_power_on", MetricType::Gauge, "", "Power supply sensor: 1 on, 0 off"}},
};

constexpr MetricFamily kAdapterInfo{"tovra_adapter", MetricType::Info, "",
                                    "Adapter identity: model, serial number, firmware, boot code and driver"};
constexpr MetricFamily kClassUp{"tovra_class_up", MetricType::Gauge, "",
                                "1 when the class's enumeration for this scrape succeeded, 0 when it failed"};

constexpr const char *kClasses[] = {"Tovra_RAIDControllerSystem", "Tovra_PortController", "Tovra_DiskDrive",
                                    "Tovra_StoragePool",          "Tovra_StorageVolume",  "Tovra_Battery",
                                    "Tovra_Chassis"};

// ---- writing ------------------------------------------------------------------

using Enumerated = std::map<std::string, cimhost::Reply>;

const std::vector<InstanceV> &instancesOf(const Enumerated &all, const char *cls) {
    static const std::vector<InstanceV> none;
    auto it = all.find(cls);
    return it != all.end() && it->second.ok() ? it->second.instances : none;
}

void writeComponent(Exposition &out, const Component &c, const std::vector<InstanceV> &instances) {
    std::vector<Labels> keys;
    keys.reserve(instances.size());
    for (const InstanceV &i : instances) keys.push_back(c.keys(i));
    for (const GaugeOf &g : c.gauges) {
        out.family(g.family);
        for (std::size_t i = 0; i < instances.size(); ++i)
            if (auto v = numberOf(instances[i], g.property)) out.sample(keys[i], *v * g.scale);
    }
    for (const StateOf &s : c.states) {
        out.family(s.family);
        for (std::size_t i = 0; i < instances.size(); ++i) {
            std::string state = stateName(textOf(instances[i], s.property));
            if (state.empty()) state = s.emptyIs;
            if (std::find(s.states.begin(), s.states.end(), state) == s.states.end()) state = "unknown";
            out.stateSet(keys[i], s.states, state);
        }
    }
    for (const InfoOf &info : c.infos) {
        out.family(info.family);
        for (std::size_t i = 0; i < instances.size(); ++i) {
            Labels labels = keys[i];
            for (const LabelFrom &l : info.labels) {
                const Value *v = instances[i].property(l.property);
                labels.push_back({l.label, v == nullptr || v->isNull() ? std::string() : labelText(v->toText())});
            }
            out.info(labels);
        }
    }
}

void writeAdapter(Exposition &out, const Enumerated &all) {
    out.family(kAdapterInfo);
    const auto &ports = instancesOf(all, "Tovra_PortController");
    for (const InstanceV &s : instancesOf(all, "Tovra_RAIDControllerSystem")) {
        const InstanceV *port = ports.empty() ? nullptr : &ports.front();
        auto fromPort = [&](const char *name) { return port != nullptr ? labelText(textOf(*port, name)) : std::string(); };
        out.info({{"model", labelText(textOf(s, "ModelName"))},
                  {"serial", labelText(textOf(s, "SerialNumber"))},
                  {"firmware", labelText(textOf(s, "FirmVersion"))},
                  {"boot", labelText(textOf(s, "BootVersion"))},
                  {"driver", fromPort("DriverName")},
                  {"driver_version", fromPort("DriverVersion")}});
    }
}

// "Enc3" names enclosure 3; another name stands for itself.
std::string enclosureOf(const InstanceV &chassis) {
    std::string name = textOf(chassis, "ElementName");
    if (name.size() > 3 && name.starts_with("Enc") && name.find_first_not_of("0123456789", 3) == std::string::npos)
        return name.substr(3);
    return labelText(name.empty() ? textOf(chassis, "Tag") : name);
}

void writeSensors(Exposition &out, const std::vector<InstanceV> &chassis) {
    static const std::vector<Value> none;
    auto list = [](const InstanceV &i, const char *name) -> const std::vector<Value> & {
        const Value *v = i.property(name);
        return v != nullptr && !v->isNull() && v->isArray() ? v->asArray() : none;
    };
    for (const SensorKind &kind : kSensorKinds) {
        out.family(kind.family);
        for (const InstanceV &c : chassis) {
            const auto &names = list(c, "SensorNames");
            const auto &kinds = list(c, "SensorTypes");
            const auto &readings = list(c, "SensorReadings");
            const std::string enclosure = enclosureOf(c);
            std::map<std::string, unsigned> seen;  // a repeated name gets " #2", " #3"...
            for (std::size_t i = 0; i < names.size() && i < kinds.size() && i < readings.size(); ++i) {
                auto reading = numberOf(&readings[i]);
                auto code = numberOf(&kinds[i]);
                if (names[i].isNull() || !code || !reading) continue;
                std::string sensor = labelText(names[i].toText());
                if (unsigned n = ++seen[sensor]; n > 1) sensor += " #" + std::to_string(n);
                if (*code != static_cast<double>(kind.code)) continue;
                out.sample({{"enclosure", enclosure}, {"sensor", sensor}}, *reading);
            }
        }
    }
}

}  // namespace

unsigned AdapterMetrics::write(Exposition &out) const {
    Enumerated all;
    unsigned failed = 0;
    for (const char *cls : kClasses) {
        cimhost::Reply r = host_.enumerateInstances(kNs, cls);
        failed += r.ok() ? 0 : 1;
        all.emplace(cls, std::move(r));
    }
    writeAdapter(out, all);
    for (const Component &c : kComponents) writeComponent(out, c, instancesOf(all, c.className));
    writeSensors(out, instancesOf(all, "Tovra_Chassis"));
    out.family(kClassUp);
    for (const char *cls : kClasses) out.sample({{"class", cls}}, all.at(cls).ok() ? 1 : 0);
    return failed;
}

}  // namespace cimserver
