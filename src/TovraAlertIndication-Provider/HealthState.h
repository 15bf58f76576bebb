// The health of the adapter's elements as the inventory reads them (disks,
// RAID sets, volumes, the battery, enclosure sensors), and the alerts a
// change between two readings raises.
#pragma once

#include "Alert.h"

#include <map>
#include <optional>
#include <string>

namespace tovra::alerts {

// One element's condition: its state text and how that state is judged.
struct Condition {
    std::string state;    // "Normal", "FAILED", "Degraded", "Low", "Above 60 C", ...
    uint16_t severity;    // severity::Information for a healthy state
    uint16_t alertType;
    uint16_t cause;       // the cause while unhealthy
    std::string what;     // "Disk Enc1 Slot3", "RAID set Raid Set # 000", ...
    ElementRef element;
    bool operator==(const Condition &o) const { return state == o.state; }
};

// Every element's condition by a stable key ("disk:<serial>", "pool:<name>", ...).
struct HealthSnapshot {
    std::string systemName;  // the controller's serial number
    std::map<std::string, Condition> conditions;
    // Event device texts ("Enc1 Slot3", a RAID set or volume name) and the
    // element each names.
    std::map<std::string, ElementRef> devices;
    ElementRef controller;
};

// Reads the snapshot over the open device; nullopt when the adapter did not
// answer an exchange (what names the reading that failed).
std::optional<HealthSnapshot> readHealth(int fd, std::string &what);

// The last known condition of every element seen. An element missing from a
// reading keeps its last condition, so one that a failed exchange hid is not
// reported again when it reads again.
using KnownConditions = std::map<std::string, Condition>;

// The alerts of the changes a reading shows against what is known, stamped at
// `now` (a changed state; a new element in an unhealthy state), and the
// reading taken into `known`. The same reading twice raises nothing.
std::vector<Alert> healthChanges(KnownConditions &known, const HealthSnapshot &after, uint32_t now);

}  // namespace tovra::alerts
