// Enclosures: vendor, product, revision, drive slot count and sensor counts of
// each of the up to twelve enclosures, read one enclosure number at a time.
#pragma once

#include "Controller.h"

#include <atomic>
#include <cstdint>
#include <memory>

enum SENSORTYPE {
    SENSOR_TYPE_FANS = 1,
    SENSOR_TYPE_VOLTAGES = 2,
    SENSOR_TYPE_TEMPERATURES = 3,
    SENSOR_TYPE_POWERS = 4,
};

// One sensor of an enclosure.
struct triple {
    char DeviceID[25];
    SENSORTYPE type;
    float SensorReading;
};

struct EnclosureInfo {
    // Sensor array of `members` zero-filled entries, made by each successful
    // read and owned by whoever holds the record.
    std::unique_ptr<triple[]> unit;
    uint8_t EncNumber;
    uint8_t EncSlots;
    uint8_t members;
    char EnclosureName[16 + 1];
    char Vendor[8 + 1];
    uint8_t EncType;
    uint8_t EncVoltages;
    uint8_t EncFans;
    uint8_t EncPowers;
    uint8_t EncTemperatures;
    char Rev[4 + 1];
    uint8_t EnclosureNumber;
    // The trimmed product name (16 characters at most) joined to the revision.
    char EnclosureNameRev[20 + 1];
};

// Sensor count of the enclosure read last.
extern std::atomic<unsigned int> sensor_num;

namespace tovra {

// Enclosure numbers run from 0 to 11.
inline constexpr int kMaxEnclosures = 12;
// Every slot position an adapter can report: EncSlots is one byte.
inline constexpr unsigned kMaxSlotPositions = kMaxEnclosures * 255;

// Decodes an enclosure property payload; false only when the sensor array
// cannot be allocated.
bool decodeEnclosureProperty(const uint8_t *payload, int enc, EnclosureInfo *info);

}  // namespace tovra

// Command 0x1B with [7] = 0: the enclosure property.
bool SendEnclosureProperty(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld, int enc);
bool ParseEnclosureProperty(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *cmdmessagefld,
                            CMD_MESSAGE_FIELD *tmpcmdmessagefld, EnclosureInfo *enclosure_info, int enc);
bool EnumTovraEnclosureInfo(CMPIStatus *rc, int fd, int enc, EnclosureInfo *enclosure_info);

// Reads enclosure `source_id`; on success its sensor array is released and the
// counts and names stay in the record.
bool LookupChassisByEnclosureNumber(CMPIStatus *rc, int fd, int source_id, EnclosureInfo *enclosure_info);
// Finds the first enclosure whose EnclosureNameRev occurs inside `source_id`.
bool LookupEnclosureByEnclosureNameRev(CMPIStatus *rc, int fd, const char *source_id,
                                       EnclosureInfo *enclosure_info);

// The other 0x1B requests: battery status, sensor descriptions and values.
bool SendBatteryStatus(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld, int index);
bool SendEnclosureTemperatureDescription(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld, int enc);
bool SendEnclosureValue(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld, int enc);
bool SendEnclosureVoltageDescription(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld, int enc);
