// Enclosure sensors and the cache backup battery, read with the 0x1B forms:
// sensor names ([7] 1, [8] 1 voltages / 4 temperatures), sensor values
// ([7] 2) and battery status ([7] 3).
#pragma once

#include "EnclosureInventory.h"

#include <cstddef>
#include <cstdint>

// The cache backup battery of one adapter.
struct BatteryInfo {
    char DeviceID[16];
    bool Present;
    uint8_t Charge;       // percent
    uint8_t Status;       // 0 normal, 1 charging, 2 failed
    int8_t Temperature;   // degrees Celsius
    uint16_t Millivolts;
};

namespace tovra {

// Width of one sensor name in a description reply.
inline constexpr std::size_t kSensorNameWidth = 24;

// Fills the names of the `kind` sensors of `e->unit` from a description
// payload ([0] count, then 24-byte names). Sensors the reply does not name
// keep a generated name. `length` is the payload length.
void decodeSensorNames(const uint8_t *payload, std::size_t length, SENSORTYPE kind, EnclosureInfo *e);
// Fills the readings from a value payload ([0..3] counts of voltages, fans,
// powers, temperatures, then float32 values in that order). A count that
// differs from the enclosure's own is read as far as both go.
void decodeSensorValues(const uint8_t *payload, std::size_t length, EnclosureInfo *e);
// Lays out `e->unit` in the order voltages, fans, powers, temperatures, each
// named "<Kind> <n>" until a description names it.
void prepareSensors(EnclosureInfo *e);
// Decodes a battery status payload ([0] present, [1] charge, [2] status,
// [3] temperature, [4..5] millivolts) for battery `index`.
void decodeBatteryStatus(const uint8_t *payload, int index, BatteryInfo *b);

// Text of a battery status code: "Normal", "Charging", "Failed" or "Unknown".
const char *batteryStatusText(uint8_t status);
// Text of a sensor kind: "Voltage", "Fan", "Power", "Temperature".
const char *sensorKindText(SENSORTYPE kind);
// Unit of a sensor kind's readings: "V", "RPM", "", "C".
const char *sensorUnit(SENSORTYPE kind);

}  // namespace tovra

bool ParseEnclosureVoltageDescription(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *cmdmessagefld,
                                      CMD_MESSAGE_FIELD *tmpcmdmessagefld, EnclosureInfo *enclosure_info);
bool ParseEnclosureTemperatureDescription(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *cmdmessagefld,
                                          CMD_MESSAGE_FIELD *tmpcmdmessagefld, EnclosureInfo *enclosure_info);
bool ParseEnclosureValue(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *cmdmessagefld,
                         CMD_MESSAGE_FIELD *tmpcmdmessagefld, EnclosureInfo *enclosure_info);
bool ParseBatteryStatus(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *cmdmessagefld,
                        CMD_MESSAGE_FIELD *tmpcmdmessagefld, BatteryInfo *battery, int index);

// Reads the sensor names and values of enclosure `enc` into the `triple` array
// of a record that EnumTovraEnclosureInfo filled. Each exchange has the retry
// rule; false when one of them fails (the array then keeps what was read).
bool EnumTovraEnclosureSensorInfo(CMPIStatus *rc, int fd, int enc, EnclosureInfo *enclosure_info);
// Reads battery `index` (0 for the adapter's own). True when the firmware
// answered, whether or not a battery is present.
bool EnumTovraBatteryInfo(CMPIStatus *rc, int fd, int index, BatteryInfo *battery);

char *GetBatteryDeviceID(BatteryInfo *b);
const char *GetBatteryDeviceID(const BatteryInfo *b);
