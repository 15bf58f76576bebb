// The monitoring verdict on an adapter: every disk, RAID set, volume, the
// battery, the enclosure sensors and the recent error events, each judged by
// its family's table of rules, with the performance data a monitoring system
// graphs. States and their exit codes follow the monitoring-plugin
// conventions: 0 OK, 1 WARNING, 2 CRITICAL, 3 UNKNOWN.
#pragma once

#include "Snapshot.h"

#include <ctime>
#include <string>
#include <vector>

namespace cimhost::cli {

enum class State { Ok = 0, Warning = 1, Critical = 2, Unknown = 3 };

const char *stateName(State state);  // "OK", "WARNING", "CRITICAL", "UNKNOWN"

struct HealthLimits {
    double temperatureWarning = 60;  // degrees C; a reading above alerts
    double temperatureCritical = 70;
    double voltageWarning = 5;  // percent off the nominal voltage the sensor's name gives
    double voltageCritical = 10;
    double fanMinimum = 1;         // RPM; a fan below it has stopped
    unsigned batteryWarning = 30;  // charge percent; a charge below alerts
    unsigned batteryCritical = 10;
    // Whether a missing battery is a problem; by default when a volume
    // caches writes ("Write Back"), which the battery protects.
    enum class Battery { Auto, Required, Optional } battery = Battery::Auto;
    time_t since = 0;  // error events at or after this time count
};

// One element checked: what --verbose lists, one per line.
struct Component {
    std::string kind;         // "disk", "raid set", "volume", "battery", "sensor", "event"
    std::string name;         // "Enc1 Slot7 Z1Z0A1C9", "Raid Set # 001", "Enc1 Controller"
    State state = State::Ok;  // OK, WARNING or CRITICAL: UNKNOWN is the whole check's
    std::string detail;       // "failed", "Normal, member of Raid Set # 000", "48 C"
};

// label=value[UOM];[warn];[crit];[min];[max], thresholds in the plugin range
// syntax ("60": alert above 60, "30:": alert below 30, "11.4:12.6": outside).
struct PerfDatum {
    std::string label;
    double value = 0;
    std::string uom;
    std::string warn, crit, min, max;
};

struct Verdict {
    State state = State::Ok;
    std::string reason;                 // why the state is UNKNOWN
    std::string overview;               // what was checked: "12 disks, 2 RAID sets, ..., battery 100%"
    std::vector<Component> components;  // in the order checked
    std::vector<PerfDatum> perfdata;

    // Components that are not OK, worst first (stable within a state).
    std::vector<const Component *> problems() const;
};

Verdict judge(const Snapshot &adapter, const HealthLimits &limits);
Verdict unknownVerdict(std::string reason);

// The classes judge() reads.
Snapshot gatherForHealth(Host &host);

// "2023-11-14 23:13:20" (UTC) to seconds since 1970; -1 when malformed.
time_t parseUtc(const std::string &stamp);
// --since: a duration back from now ("30m", "24h", "7d", "90s", "0") or a UTC
// time ("2023-11-14", "2023-11-14 23:13:20", "2023-11-14T23:13:20").
// Throws std::invalid_argument for anything else.
time_t sinceTime(const std::string &text, time_t now);

}  // namespace cimhost::cli
