// One alert as the provider raises it, before it becomes an indication: what
// it is about, how severe, and the element it concerns. No CIM objects here.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace tovra::alerts {

// A managed element by class and keys, written as a CIM object path.
struct ElementRef {
    std::string className;
    std::vector<std::pair<std::string, std::string>> keys;  // in this order
    // "<ns>:<Class>.<Key>=\"<value>\",..." (quotes and backslashes escaped).
    std::string path(const std::string &ns) const;
};

// Standard values (CIM_AlertIndication).
namespace severity {
inline constexpr uint16_t Unknown = 0, Information = 2, Warning = 3, Major = 5, Critical = 6;
}
namespace alerttype {
inline constexpr uint16_t Other = 1, DeviceAlert = 5, Environmental = 6;
}
namespace cause {
inline constexpr uint16_t Other = 1, EquipmentMalfunction = 16, PerformanceDegraded = 35, TemperatureUnacceptable = 51,
                          PreviousAlertCleared = 59, ElementMissing = 73, DiskFailure = 86, LossOfRedundancy = 88,
                          PowerSupplyFailure = 89, FanFailure = 94, BatteryFailure = 92, LowBattery = 99,
                          OutOfService = 128;
}

struct Alert {
    std::string identifier;  // IndicationIdentifier: unique, the same for the same event
    std::string eventId;     // EventID: the same for the same condition
    uint32_t time = 0;       // seconds since 1970, UTC
    uint16_t perceivedSeverity = severity::Unknown;
    uint16_t alertType = alerttype::Other;
    uint16_t probableCause = cause::Other;
    std::string probableCauseDescription;
    std::string message;  // Description and Message
    ElementRef element;
};

}  // namespace tovra::alerts
