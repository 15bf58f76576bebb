#include "DiskInventory.h"

#include <cctype>
#include <cstdio>
#include <cstring>

char *stripspace(char *s) {
    std::size_t n = std::strlen(s);
    while (n > 0 && std::isspace(static_cast<unsigned char>(s[n - 1]))) --n;
    s[n] = '\0';
    return s;
}

char *GetDiskDriveSerialNumber(DiskInfo *d) { return d->SerialNumber; }
const char *GetDiskDriveSerialNumber(const DiskInfo *d) { return d->SerialNumber; }

namespace tovra {

using wire::getLE16;
using wire::getLE32;
using wire::getLE64;

namespace {

// sGUI_PHY_DRV offsets within the payload.
constexpr std::size_t kModelName = 0;
constexpr std::size_t kSerialNumber = 40;
constexpr std::size_t kFirmRev = 60;
constexpr std::size_t kCapacity = 68;
constexpr std::size_t kDeviceState = 76;
constexpr std::size_t kCurrentUdmaMode = 78;
constexpr std::size_t kUdmaMode = 79;
constexpr std::size_t kRaidNumber = 81;
constexpr std::size_t kMediaErrorCount = 88;
constexpr std::size_t kTimeOutCount = 92;
constexpr std::size_t kSasAddress = 96;
constexpr std::size_t kSmart = 104;
constexpr std::size_t kRotationRPM = 104;
constexpr std::size_t kTemperature = 106;
constexpr std::size_t kSmartSenseCode = 108;
constexpr std::size_t kAttribute = 112;

constexpr uint64_t kSasBandLow = 0x5000000000000000ULL;
constexpr uint64_t kSasBandHigh = 0x5001000000000000ULL;

constexpr const char kSas[] = "SAS";
constexpr const char kSata[] = "SATA";

struct UsageRule {
    uint8_t bit;
    bool set;  // the rule holds when the bit is set (or, if false, clear)
    const char *usage;
    const char *state;
};

// First rule that holds wins; a disk matching none is a RAID set member.
constexpr UsageRule kUsageRules[] = {
    {0x10, true, "Failed", "FAILED"},        {0x20, true, "Hot Spare", "Normal"},
    {0x02, true, "Pass Through", "Normal"},  {0x04, true, "Offlined", "Offlined"},
    {0x80, false, "Unavailable", "Offlined"}, {0x40, true, "Free", "Normal"},
};

constexpr char kSignature[8] = {'K', 'e', 'L', 'p', 'O', 'r', 'I', 'n'};

// Case-insensitive substring test.
bool containsNoCase(const char *haystack, const char *needle) {
    const std::size_t h = std::strlen(haystack), n = std::strlen(needle);
    for (std::size_t i = 0; i + n <= h; ++i) {
        std::size_t k = 0;
        while (k < n && std::tolower(static_cast<unsigned char>(haystack[i + k])) ==
                            std::tolower(static_cast<unsigned char>(needle[k])))
            ++k;
        if (k == n) return true;
    }
    return false;
}

// The first byte of the reply payload as a flag.
bool readFlagReply(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *reassembly, CMD_MESSAGE_FIELD *reply,
                   const char *parser) {
    return readInventoryReply(rc, fd, reassembly, reply, parser) && replyPayload(reassembly)[0] != 0;
}

}  // namespace

void copyTrimmed(char *dst, const uint8_t *src, std::size_t width) {
    std::memcpy(dst, src, width);
    dst[width] = '\0';
    stripspace(dst);
}

const char *deviceTypeOf(uint64_t address) {
    return address > kSasBandLow && address <= kSasBandHigh ? kSas : kSata;
}

void decodeDiskInfo(const uint8_t *p, int slot, int enc, DiskInfo *d) {
    copyTrimmed(d->SerialNumber, p + kSerialNumber, 20);
    copyTrimmed(d->ModelName, p + kModelName, 40);
    copyTrimmed(d->FirmRev, p + kFirmRev, 8);
    d->Capacity = getLE64(p + kCapacity) << 9;
    d->TimeOutCount = getLE32(p + kTimeOutCount);
    d->MediaErrorCount = getLE32(p + kMediaErrorCount);
    d->Address = getLE64(p + kSasAddress);
    d->DeviceType = deviceTypeOf(d->Address);
    if (d->DeviceType == kSas) {
        d->u.sas.RotationRPM = getLE16(p + kRotationRPM);
        d->u.sas.Temperature = getLE16(p + kTemperature);
        d->u.sas.SmartSenseCode = getLE16(p + kSmartSenseCode);
        for (int i = 0; i < 20; ++i) d->u.sas.Attribute[i] = getLE64(p + kAttribute + 8 * i);
    } else {
        for (int i = 0; i < 9; ++i) {
            const uint8_t *entry = p + kSmart + 4 * i;
            d->u.sata.Smart[i] = sSMART_DATA{getLE16(entry), entry[2], entry[3]};
        }
    }
    d->RaidSetNumber = p[kRaidNumber];
    d->CurrentUdmaMode = p[kCurrentUdmaMode];
    d->UdmaMode = p[kUdmaMode];

    const uint8_t state = p[kDeviceState];
    d->Usage = "";
    d->DeviceState = "";
    for (const UsageRule &rule : kUsageRules) {
        if (((state & rule.bit) != 0) == rule.set) {
            d->Usage = rule.usage;
            d->DeviceState = rule.state;
            break;
        }
    }
    d->EnclosureNumber = static_cast<uint8_t>(enc);
    d->SlotNumber = static_cast<uint8_t>(slot);
    std::snprintf(d->Enc, sizeof d->Enc, "Enc%d", d->EnclosureNumber + 1);
    std::snprintf(d->Slot, sizeof d->Slot, "Slot%d", d->SlotNumber + 1);
}

}  // namespace tovra

using namespace tovra;

bool SendDiskInfo(CMPIStatus *, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld, int drv, int enc) {
    const uint8_t params[] = {static_cast<uint8_t>(drv), static_cast<uint8_t>(enc)};
    frameRequest(pcmdmessagefld, 0x22, 3, params);
    return sendRequest(fd, pcmdmessagefld);
}

bool SendIdentify(CMPIStatus *, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld) {
    frameRequest(pcmdmessagefld, 0x13, 1);
    return sendRequest(fd, pcmdmessagefld);
}

bool ParseDiskInfo(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *cmdmessagefld, CMD_MESSAGE_FIELD *tmpcmdmessagefld,
                   int slot, int enc, DiskInfo *disks_info) {
    if (!readInventoryReply(rc, fd, cmdmessagefld, tmpcmdmessagefld, "ParseDiskInfo")) return false;
    decodeDiskInfo(replyPayload(cmdmessagefld), slot, enc, disks_info);
    return true;
}

bool ParseIdentifyDevice(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *cmdmessagefld,
                         CMD_MESSAGE_FIELD *tmpcmdmessagefld) {
    return readFlagReply(rc, fd, cmdmessagefld, tmpcmdmessagefld, "ParseIdentifyDevice");
}

bool EnumTovraDiskDriveSlotInfo(CMPIStatus *rc, int fd, int slot, int enc, DiskInfo *disks_info) {
    return exchangeWithRetry(
        rc, "EnumTovraDiskDriveSlotInfo",
        [&](CMD_MESSAGE_FIELD *request) { return SendDiskInfo(rc, fd, request, slot, enc); },
        [&](CMD_MESSAGE_FIELD *reassembly, CMD_MESSAGE_FIELD *reply) {
            return ParseDiskInfo(rc, fd, reassembly, reply, slot, enc, disks_info);
        });
}

bool ProceedingIdentify(CMPIStatus *rc, int fd) {
    return exchangeWithRetry(
        rc, "ProceedingIdentify", [&](CMD_MESSAGE_FIELD *request) { return SendIdentify(rc, fd, request); },
        [&](CMD_MESSAGE_FIELD *reassembly, CMD_MESSAGE_FIELD *reply) {
            return ParseIdentifyDevice(rc, fd, reassembly, reply);
        });
}

bool SendMISC(CMPIStatus *, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld, int selector) {
    uint8_t params[10] = {0x08};
    std::memcpy(params + 1, kSignature, sizeof kSignature);
    params[9] = static_cast<uint8_t>(selector);
    frameRequest(pcmdmessagefld, 0x1F, 526, params);
    return sendRequest(fd, pcmdmessagefld);
}

bool ParseMISC(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *cmdmessagefld, CMD_MESSAGE_FIELD *tmpcmdmessagefld) {
    return readFlagReply(rc, fd, cmdmessagefld, tmpcmdmessagefld, "ParseMISC");
}

bool PrecedingEnumeration(CMPIStatus *rc, int fd, int index) {
    return exchangeWithRetry(
        rc, "PrecedingEnumeration", [&](CMD_MESSAGE_FIELD *request) { return SendMISC(rc, fd, request, index); },
        [&](CMD_MESSAGE_FIELD *reassembly, CMD_MESSAGE_FIELD *reply) {
            return ParseMISC(rc, fd, reassembly, reply);
        });
}

bool LookupDiskDriveByEncSlot(CMPIStatus *rc, int fd, int enc, int slot, DiskInfo *disks_info,
                              ControllerInfo *current_controllers, EnclosureInfo *enclosure_info) {
    const bool found = EnumTovraComputerSystemInfo(rc, fd, current_controllers) &&
                       EnumTovraEnclosureInfo(rc, fd, enc, enclosure_info) && enclosure_info->EncSlots != 0 &&
                       EnumTovraDiskDriveSlotInfo(rc, fd, slot, enc, disks_info);
    enclosure_info->unit.reset();
    return found;
}

bool LookupDiskDriveBySerialNumber(CMPIStatus *rc, int fd, const char *id, ControllerInfo *current_controllers,
                                   EnclosureInfo *enclosure_info, DiskInfo *disks_info) {
    if (id == nullptr || *id == '\0') return false;
    if (!EnumTovraComputerSystemInfo(rc, fd, current_controllers)) return false;
    bool found = false;
    WalkDisks(rc, fd, *enclosure_info, [&](const EnclosureInfo &, DiskInfo &disk) {
        if (disk.SerialNumber[0] == '\0') return true;
        if (!containsNoCase(id, disk.SerialNumber) && !containsNoCase(disk.SerialNumber, id)) return true;
        *disks_info = disk;
        found = true;
        return false;
    });
    return found;
}

bool LookupPhysicalPackageByTag(CMPIStatus *rc, int fd, const char *id, ControllerInfo *current_controllers,
                                EnclosureInfo *enclosure_info, DiskInfo *disks_info) {
    if (id == nullptr || *id == '\0') return false;
    if (!EnumTovraComputerSystemInfo(rc, fd, current_controllers)) return false;
    if (std::strcmp(id, GetControllerSerialNumber(current_controllers)) == 0) return true;
    bool found = false;
    WalkDisks(rc, fd, *enclosure_info, [&](const EnclosureInfo &, DiskInfo &disk) {
        char tag[16];
        std::snprintf(tag, sizeof tag, "%d", disk.EnclosureNumber * 256 + disk.SlotNumber);
        if (std::strcmp(tag, id) != 0) return true;
        *disks_info = disk;
        found = true;
        return false;
    });
    return found;
}
