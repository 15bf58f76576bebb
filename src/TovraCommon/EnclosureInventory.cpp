#include "EnclosureInventory.h"

#include "DiskInventory.h"

#include <cstdio>
#include <cstring>
#include <new>

std::atomic<unsigned int> sensor_num{0};

unsigned int GetSensorCount() { return sensor_num.load(); }

char *GetContainerName(EnclosureInfo *e) { return e->EnclosureName; }
const char *GetContainerName(const EnclosureInfo *e) { return e->EnclosureName; }

namespace tovra {

namespace {

// sGUI_ENC_PROPERTY offsets within the payload.
constexpr std::size_t kVendor = 0;
constexpr std::size_t kProduct = 8;
constexpr std::size_t kRev = 24;
constexpr std::size_t kEncNumber = 29;
constexpr std::size_t kEncSlots = 30;
constexpr std::size_t kEncVoltages = 31;
constexpr std::size_t kEncFans = 32;
constexpr std::size_t kEncPowers = 33;
constexpr std::size_t kEncTemperatures = 34;

constexpr uint8_t kEnclosureCommand = 0x1B;

bool sendEnclosureRequest(int fd, CMD_MESSAGE_FIELD *m, std::initializer_list<uint8_t> params) {
    frameRequest(m, kEnclosureCommand, static_cast<uint16_t>(params.size() + 1), {params.begin(), params.size()});
    return sendRequest(fd, m);
}

}  // namespace

bool decodeEnclosureProperty(const uint8_t *p, int enc, EnclosureInfo *e) {
    e->EncVoltages = p[kEncVoltages];
    e->EncFans = p[kEncFans];
    e->EncPowers = p[kEncPowers];
    e->EncTemperatures = p[kEncTemperatures];
    e->members = static_cast<uint8_t>(e->EncVoltages + e->EncFans + e->EncPowers + e->EncTemperatures);
    sensor_num = e->members;
    e->EnclosureNumber = static_cast<uint8_t>(enc);
    e->EncNumber = p[kEncNumber];
    e->EncSlots = p[kEncSlots];
    copyTrimmed(e->Vendor, p + kVendor, 8);
    copyTrimmed(e->EnclosureName, p + kProduct, 16);
    std::memcpy(e->Rev, p + kRev, 4);
    e->Rev[4] = '\0';
    std::snprintf(e->EnclosureNameRev, sizeof e->EnclosureNameRev, "%.16s%s", e->EnclosureName, e->Rev);
    e->unit.reset(new (std::nothrow) triple[e->members]());
    return e->unit != nullptr;
}

}  // namespace tovra

using namespace tovra;

bool SendEnclosureProperty(CMPIStatus *, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld, int enc) {
    return sendEnclosureRequest(fd, pcmdmessagefld, {static_cast<uint8_t>(enc), 0});
}

bool ParseEnclosureProperty(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *cmdmessagefld,
                            CMD_MESSAGE_FIELD *tmpcmdmessagefld, EnclosureInfo *enclosure_info, int enc) {
    if (!readInventoryReply(rc, fd, cmdmessagefld, tmpcmdmessagefld, "ParseEnclosureProperty")) return false;
    if (decodeEnclosureProperty(replyPayload(cmdmessagefld), enc, enclosure_info)) return true;
    logAlert("%s: CMPI_RC_ERROR_SYSTEM\n", "ParseEnclosureProperty");
    return false;
}

bool EnumTovraEnclosureInfo(CMPIStatus *rc, int fd, int enc, EnclosureInfo *enclosure_info) {
    return exchangeWithRetry(
        rc, "EnumTovraEnclosureInfo",
        [&](CMD_MESSAGE_FIELD *request) { return SendEnclosureProperty(rc, fd, request, enc); },
        [&](CMD_MESSAGE_FIELD *reassembly, CMD_MESSAGE_FIELD *reply) {
            return ParseEnclosureProperty(rc, fd, reassembly, reply, enclosure_info, enc);
        });
}

bool LookupChassisByEnclosureNumber(CMPIStatus *rc, int fd, int source_id, EnclosureInfo *enclosure_info) {
    if (!EnumTovraEnclosureInfo(rc, fd, source_id, enclosure_info)) return false;
    enclosure_info->unit.reset();
    return true;
}

bool LookupEnclosureByEnclosureNameRev(CMPIStatus *rc, int fd, const char *source_id,
                                       EnclosureInfo *enclosure_info) {
    if (source_id == nullptr || *source_id == '\0') return false;
    for (int enc = 0; enc < kMaxEnclosures; ++enc) {
        if (!EnumTovraEnclosureInfo(rc, fd, enc, enclosure_info)) continue;
        const bool found = std::strstr(source_id, enclosure_info->EnclosureNameRev) != nullptr;
        enclosure_info->unit.reset();
        if (found) return true;
    }
    return false;
}

bool SendBatteryStatus(CMPIStatus *, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld, int index) {
    return sendEnclosureRequest(fd, pcmdmessagefld, {static_cast<uint8_t>(index), 3, 0});
}

bool SendEnclosureTemperatureDescription(CMPIStatus *, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld, int enc) {
    return sendEnclosureRequest(fd, pcmdmessagefld, {static_cast<uint8_t>(enc), 1, 4});
}

bool SendEnclosureValue(CMPIStatus *, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld, int enc) {
    return sendEnclosureRequest(fd, pcmdmessagefld, {static_cast<uint8_t>(enc), 2, 0});
}

bool SendEnclosureVoltageDescription(CMPIStatus *, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld, int enc) {
    return sendEnclosureRequest(fd, pcmdmessagefld, {static_cast<uint8_t>(enc), 1, 1});
}
