#include "SensorInventory.h"

#include "DiskInventory.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>

namespace tovra {

namespace {

// The order of the sensor array and of the value reply.
constexpr SENSORTYPE kKindOrder[] = {SENSOR_TYPE_VOLTAGES, SENSOR_TYPE_FANS, SENSOR_TYPE_POWERS,
                                     SENSOR_TYPE_TEMPERATURES};

uint8_t countOf(const EnclosureInfo &e, SENSORTYPE kind) {
    switch (kind) {
        case SENSOR_TYPE_VOLTAGES: return e.EncVoltages;
        case SENSOR_TYPE_FANS: return e.EncFans;
        case SENSOR_TYPE_POWERS: return e.EncPowers;
        case SENSOR_TYPE_TEMPERATURES: return e.EncTemperatures;
    }
    return 0;
}

// Index in the sensor array of the first sensor of `kind`.
std::size_t firstOf(const EnclosureInfo &e, SENSORTYPE kind) {
    std::size_t at = 0;
    for (SENSORTYPE k : kKindOrder) {
        if (k == kind) break;
        at += countOf(e, k);
    }
    return at;
}

}  // namespace

const char *sensorKindText(SENSORTYPE kind) {
    switch (kind) {
        case SENSOR_TYPE_VOLTAGES: return "Voltage";
        case SENSOR_TYPE_FANS: return "Fan";
        case SENSOR_TYPE_POWERS: return "Power";
        case SENSOR_TYPE_TEMPERATURES: return "Temperature";
    }
    return "Unknown";
}

const char *sensorUnit(SENSORTYPE kind) {
    switch (kind) {
        case SENSOR_TYPE_VOLTAGES: return "V";
        case SENSOR_TYPE_FANS: return "RPM";
        case SENSOR_TYPE_TEMPERATURES: return "C";
        case SENSOR_TYPE_POWERS: return "";
    }
    return "";
}

void prepareSensors(EnclosureInfo *e) {
    if (!e->unit) return;
    std::size_t at = 0;
    for (SENSORTYPE kind : kKindOrder)
        for (unsigned n = 1; n <= countOf(*e, kind) && at < e->members; ++n, ++at) {
            triple &t = e->unit[at];
            t.type = kind;
            t.SensorReading = 0;
            std::snprintf(t.DeviceID, sizeof t.DeviceID, "%s %u", sensorKindText(kind), n);
        }
}

void decodeSensorNames(const uint8_t *p, std::size_t length, SENSORTYPE kind, EnclosureInfo *e) {
    if (!e->unit || length < 1) return;
    const std::size_t fit = (length - 1) / kSensorNameWidth;
    const std::size_t n = std::min<std::size_t>({p[0], countOf(*e, kind), fit});
    const std::size_t first = firstOf(*e, kind);
    for (std::size_t i = 0; i < n; ++i) {
        char name[kSensorNameWidth + 1];
        copyTrimmed(name, p + 1 + i * kSensorNameWidth, kSensorNameWidth);
        // The sensor count is one byte: counts that overflow it are cut.
        if (name[0] != '\0' && first + i < e->members) std::memcpy(e->unit[first + i].DeviceID, name, sizeof name);
    }
}

void decodeSensorValues(const uint8_t *p, std::size_t length, EnclosureInfo *e) {
    if (!e->unit || length < 4) return;
    std::size_t at = 4;  // reply offset of the next value
    for (std::size_t k = 0; k < 4; ++k) {
        const SENSORTYPE kind = kKindOrder[k];
        const std::size_t reported = p[k];
        const std::size_t first = firstOf(*e, kind);
        for (std::size_t i = 0; i < reported; ++i, at += 4) {
            if (at + 4 > length) return;
            if (i < countOf(*e, kind) && first + i < e->members)
                e->unit[first + i].SensorReading = std::bit_cast<float>(wire::getLE32(p + at));
        }
    }
}

void decodeBatteryStatus(const uint8_t *p, int index, BatteryInfo *b) {
    *b = BatteryInfo{};
    std::snprintf(b->DeviceID, sizeof b->DeviceID, "Battery%d", index);
    b->Present = p[0] != 0;
    if (!b->Present) return;
    b->Charge = p[1];
    b->Status = p[2];
    b->Temperature = static_cast<int8_t>(p[3]);
    b->Millivolts = wire::getLE16(p + 4);
}

const char *batteryStatusText(uint8_t status) {
    switch (status) {
        case 0: return "Normal";
        case 1: return "Charging";
        case 2: return "Failed";
        default: return "Unknown";
    }
}

}  // namespace tovra

using namespace tovra;

namespace {

// Payload bytes the reassembled reply frame holds, bounded by its buffer.
std::size_t payloadLength(const CMD_MESSAGE_FIELD *m) {
    return std::min<std::size_t>(replyLength(m), wire::kBufferSize - 6);
}

template <class Decode>
bool parseSensorReply(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *reassembly, CMD_MESSAGE_FIELD *reply,
                      const char *parser, Decode &&decode) {
    if (!readInventoryReply(rc, fd, reassembly, reply, parser)) return false;
    decode(replyPayload(reassembly), payloadLength(reassembly));
    return true;
}


}  // namespace

bool ParseEnclosureVoltageDescription(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *cmdmessagefld,
                                      CMD_MESSAGE_FIELD *tmpcmdmessagefld, EnclosureInfo *enclosure_info) {
    return parseSensorReply(rc, fd, cmdmessagefld, tmpcmdmessagefld, "ParseEnclosureVoltageDescription",
                            [&](const uint8_t *p, std::size_t n) {
                                decodeSensorNames(p, n, SENSOR_TYPE_VOLTAGES, enclosure_info);
                            });
}

bool ParseEnclosureTemperatureDescription(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *cmdmessagefld,
                                          CMD_MESSAGE_FIELD *tmpcmdmessagefld, EnclosureInfo *enclosure_info) {
    return parseSensorReply(rc, fd, cmdmessagefld, tmpcmdmessagefld, "ParseEnclosureTemperatureDescription",
                            [&](const uint8_t *p, std::size_t n) {
                                decodeSensorNames(p, n, SENSOR_TYPE_TEMPERATURES, enclosure_info);
                            });
}

bool ParseEnclosureValue(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *cmdmessagefld,
                         CMD_MESSAGE_FIELD *tmpcmdmessagefld, EnclosureInfo *enclosure_info) {
    return parseSensorReply(rc, fd, cmdmessagefld, tmpcmdmessagefld, "ParseEnclosureValue",
                            [&](const uint8_t *p, std::size_t n) { decodeSensorValues(p, n, enclosure_info); });
}

bool ParseBatteryStatus(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *cmdmessagefld,
                        CMD_MESSAGE_FIELD *tmpcmdmessagefld, BatteryInfo *battery, int index) {
    if (!readInventoryReply(rc, fd, cmdmessagefld, tmpcmdmessagefld, "ParseBatteryStatus")) return false;
    uint8_t payload[6] = {};
    std::memcpy(payload, replyPayload(cmdmessagefld), std::min<std::size_t>(sizeof payload, payloadLength(cmdmessagefld)));
    decodeBatteryStatus(payload, index, battery);
    return true;
}

bool EnumTovraEnclosureSensorInfo(CMPIStatus *rc, int fd, int enc, EnclosureInfo *enclosure_info) {
    prepareSensors(enclosure_info);
    if (enclosure_info->members == 0) return true;
    const char *caller = "EnumTovraEnclosureSensorInfo";
    return exchangeWithRetry(
               rc, caller,
               [&](CMD_MESSAGE_FIELD *request) { return SendEnclosureVoltageDescription(rc, fd, request, enc); },
               [&](CMD_MESSAGE_FIELD *reassembly, CMD_MESSAGE_FIELD *reply) {
                   return ParseEnclosureVoltageDescription(rc, fd, reassembly, reply, enclosure_info);
               }) &&
           exchangeWithRetry(
               rc, caller,
               [&](CMD_MESSAGE_FIELD *request) { return SendEnclosureTemperatureDescription(rc, fd, request, enc); },
               [&](CMD_MESSAGE_FIELD *reassembly, CMD_MESSAGE_FIELD *reply) {
                   return ParseEnclosureTemperatureDescription(rc, fd, reassembly, reply, enclosure_info);
               }) &&
           exchangeWithRetry(
               rc, caller, [&](CMD_MESSAGE_FIELD *request) { return SendEnclosureValue(rc, fd, request, enc); },
               [&](CMD_MESSAGE_FIELD *reassembly, CMD_MESSAGE_FIELD *reply) {
                   return ParseEnclosureValue(rc, fd, reassembly, reply, enclosure_info);
               });
}

bool EnumTovraBatteryInfo(CMPIStatus *rc, int fd, int index, BatteryInfo *battery) {
    return exchangeWithRetry(
        rc, "EnumTovraBatteryInfo", [&](CMD_MESSAGE_FIELD *request) { return SendBatteryStatus(rc, fd, request, index); },
        [&](CMD_MESSAGE_FIELD *reassembly, CMD_MESSAGE_FIELD *reply) {
            return ParseBatteryStatus(rc, fd, reassembly, reply, battery, index);
        });
}

char *GetBatteryDeviceID(BatteryInfo *b) { return b->DeviceID; }
const char *GetBatteryDeviceID(const BatteryInfo *b) { return b->DeviceID; }
