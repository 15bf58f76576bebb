#include "HealthState.h"

#include "Channel.h"
#include "Controller.h"
#include "DiskInventory.h"
#include "RaidInventory.h"
#include "SensorInventory.h"

#include <cmath>
#include <cstring>

namespace tovra::alerts {

namespace {

// Thresholds of the enclosure temperature sensors, in degrees Celsius.
constexpr float kTemperatureWarning = 60;
constexpr float kTemperatureCritical = 70;

std::string text(const char *s) { return s != nullptr ? s : ""; }

ElementRef device(const char *cls, const std::string &id, const std::string &system) {
    return {cls,
            {{"CreationClassName", cls},
             {"DeviceID", id},
             {"SystemCreationClassName", SystemCreationClassName},
             {"SystemName", system}}};
}

struct Reader {
    int fd;
    std::string &what;
    CMPIStatus status{CMPI_RC_OK, nullptr};
    // An exchange the adapter did not answer leaves the status failed.
    bool ok(const char *reading) {
        if (status.rc == CMPI_RC_OK) return true;
        what = reading;
        return false;
    }
};

Condition disk(const DiskInfo &d, const std::string &system) {
    // A RAID set member reads with no state text of its own.
    const std::string state = text(d.DeviceState).empty() ? "Normal" : text(d.DeviceState);
    const std::string what = "Disk " + std::string(d.Enc) + " " + d.Slot + " (" + d.SerialNumber + ")";
    const ElementRef element = device("Tovra_DiskDrive", d.SerialNumber, system);
    if (state == "FAILED") return {state, severity::Critical, alerttype::DeviceAlert, cause::DiskFailure, what, element};
    if (state == "Offlined")
        return {state, severity::Major, alerttype::DeviceAlert, cause::OutOfService, what, element};
    return {state, severity::Information, alerttype::DeviceAlert, cause::PreviousAlertCleared, what, element};
}

// RAID set and volume states share their words.
Condition redundancy(const std::string &state, std::string what, ElementRef element) {
    if (state == "Failed" || state == "Incomplete")
        return {state, severity::Critical, alerttype::DeviceAlert, cause::ElementMissing, std::move(what),
                std::move(element)};
    if (state == "Degraded")
        return {state, severity::Major, alerttype::DeviceAlert, cause::LossOfRedundancy, std::move(what),
                std::move(element)};
    if (state == "Rebuilding")
        return {state, severity::Warning, alerttype::DeviceAlert, cause::PerformanceDegraded, std::move(what),
                std::move(element)};
    return {state, severity::Information, alerttype::DeviceAlert, cause::PreviousAlertCleared, std::move(what),
            std::move(element)};
}

Condition battery(const BatteryInfo &b, const std::string &system) {
    const ElementRef element = device("Tovra_Battery", GetBatteryDeviceID(&b), system);
    const std::string what = "Cache backup battery";
    if (!b.Present) return {"Absent", severity::Major, alerttype::DeviceAlert, cause::ElementMissing, what, element};
    if (b.Status == 2) return {"Failed", severity::Critical, alerttype::DeviceAlert, cause::BatteryFailure, what, element};
    if (b.Charge <= 25) return {"Low", severity::Warning, alerttype::DeviceAlert, cause::LowBattery, what, element};
    return {"Normal", severity::Information, alerttype::DeviceAlert, cause::PreviousAlertCleared, what, element};
}

Condition sensor(const triple &s, const std::string &what, const ElementRef &chassis) {
    const auto healthy = [&](std::string state) {
        return Condition{std::move(state), severity::Information, alerttype::Environmental,
                         cause::PreviousAlertCleared, what, chassis};
    };
    const auto alarm = [&](std::string state, uint16_t sev, uint16_t why) {
        return Condition{std::move(state), sev, alerttype::Environmental, why, what, chassis};
    };
    const float v = s.SensorReading;
    switch (s.type) {
        case SENSOR_TYPE_TEMPERATURES:
            if (v >= kTemperatureCritical) return alarm("Above 70 C", severity::Critical, cause::TemperatureUnacceptable);
            if (v >= kTemperatureWarning) return alarm("Above 60 C", severity::Warning, cause::TemperatureUnacceptable);
            return healthy("Normal");
        case SENSOR_TYPE_FANS: return v <= 0 ? alarm("Stopped", severity::Critical, cause::FanFailure) : healthy("Normal");
        case SENSOR_TYPE_POWERS: return v <= 0 ? alarm("Off", severity::Major, cause::PowerSupplyFailure) : healthy("Normal");
        default: return healthy("Normal");  // voltages have no known nominal value
    }
}

bool readDisks(Reader &r, HealthSnapshot &h) {
    const bool walked = WalkDisks(&r.status, r.fd, [&](const EnclosureInfo &, DiskInfo &d) {
        if (r.status.rc != CMPI_RC_OK) return false;
        if (d.Capacity == 0) return true;
        Condition c = disk(d, h.systemName);
        h.devices[std::string(d.Enc) + " " + d.Slot] = c.element;
        h.conditions["disk:" + std::string(d.SerialNumber)] = std::move(c);
        return true;
    });
    return r.ok("disks") && walked;
}

bool readSets(Reader &r, HealthSnapshot &h) {
    for (int number = 0; number < kMaxRaidSets; ++number) {
        RAIDSetInfo s{};
        if (!EnumTovraRAIDsInfo(&r.status, r.fd, number, &s) || s.Capacity == 0) {
            if (!r.ok("RAID sets")) return false;
            continue;
        }
        ElementRef element{"Tovra_StoragePool", {{"InstanceID", s.RaidSetName}}};
        h.devices[s.RaidSetName] = element;
        h.conditions["pool:" + std::string(s.RaidSetName)] =
            redundancy(text(s.RaidState), "RAID set " + std::string(s.RaidSetName), std::move(element));
    }
    for (int number = 0; number < kMaxVolumes; ++number) {
        VolumeInfo v{};
        if (!EnumTovraVolumeInfo(&r.status, r.fd, number, &v) || v.Capacity == 0) {
            if (!r.ok("volumes")) return false;
            continue;
        }
        ElementRef element = device("Tovra_StorageVolume", v.VolumeName, h.systemName);
        h.devices[v.VolumeName] = element;
        h.conditions["volume:" + std::string(v.VolumeName)] =
            redundancy(text(v.VolumeStatus), "Volume " + std::string(v.VolumeName), std::move(element));
    }
    return true;
}

bool readEnclosures(Reader &r, HealthSnapshot &h) {
    for (int enc = 0; enc < kMaxEnclosures; ++enc) {
        EnclosureInfo e{};
        if (!EnumTovraEnclosureInfo(&r.status, r.fd, enc, &e) || e.EncSlots == 0) {
            if (!r.ok("enclosures")) return false;
            continue;
        }
        if (!EnumTovraEnclosureSensorInfo(&r.status, r.fd, enc, &e)) {
            if (!r.ok("sensors")) return false;
            continue;
        }
        const ElementRef chassis{"Tovra_Chassis", {{"CreationClassName", "Tovra_Chassis"}, {"Tag", e.EnclosureNameRev}}};
        const std::string encName = "Enc" + std::to_string(enc + 1);
        for (unsigned i = 0; i < e.members; ++i) {
            const triple &s = e.unit[i];
            const std::string what = std::string(sensorKindText(s.type)) + " sensor " + s.DeviceID + " of " + encName;
            h.conditions["sensor:" + encName + ":" + s.DeviceID] = sensor(s, what, chassis);
        }
    }
    return true;
}

}  // namespace

std::string ElementRef::path(const std::string &ns) const {
    std::string out = ns + ":" + className;
    char sep = '.';
    for (const auto &[name, value] : keys) {
        out += sep + name + "=\"";
        for (char c : value) {
            if (c == '"' || c == '\\') out += '\\';
            out += c;
        }
        out += '"';
        sep = ',';
    }
    return out;
}

std::optional<HealthSnapshot> readHealth(int fd, std::string &what) {
    Reader r{fd, what};
    HealthSnapshot h;
    ControllerInfo controller{};
    if (!EnumTovraControllerInfo(&r.status, fd, &controller) || !r.ok("controller")) {
        what = "controller";
        return std::nullopt;
    }
    h.systemName = GetControllerSerialNumber(&controller);
    h.controller = {SystemCreationClassName, {{"CreationClassName", SystemCreationClassName}, {"Name", h.systemName}}};
    if (!readDisks(r, h) || !readSets(r, h) || !readEnclosures(r, h)) return std::nullopt;
    BatteryInfo b{};
    if (!EnumTovraBatteryInfo(&r.status, fd, 0, &b) || !r.ok("battery")) {
        what = "battery";
        return std::nullopt;
    }
    h.conditions["battery"] = battery(b, h.systemName);
    return h;
}

std::vector<Alert> healthChanges(KnownConditions &known, const HealthSnapshot &after, uint32_t now) {
    std::vector<Alert> alerts;
    for (const auto &[key, c] : after.conditions) {
        const auto was = known.find(key);
        const bool seen = was != known.end();
        const bool changed = seen ? !(was->second == c) : c.severity != severity::Information;
        if (!changed) {
            if (!seen) known.emplace(key, c);
            continue;
        }
        Alert a;
        a.eventId = key + ":" + c.state;
        a.time = now;
        a.perceivedSeverity = c.severity;
        a.alertType = c.alertType;
        a.probableCause = c.cause;
        a.message = c.what + (seen ? " changed from " + was->second.state + " to " : " is ") + c.state;
        a.probableCauseDescription = a.message;
        a.element = c.element;
        alerts.push_back(std::move(a));
        known[key] = c;
    }
    return alerts;
}

}  // namespace tovra::alerts
