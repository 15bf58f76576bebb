#include "Controller.h"

#include "DiskInventory.h"
#include "EnclosureInventory.h"

#include <cstring>

namespace tovra {

using wire::getLE32;

namespace {

// sSYSTEM_INFO offsets of the fields the controller record keeps.
constexpr std::size_t kVendorName = 0;
constexpr std::size_t kSerialNumber = 40;
constexpr std::size_t kFirmVersion = 56;
constexpr std::size_t kBootVersion = 72;
constexpr std::size_t kMbVersion = 88;
constexpr std::size_t kModelName = 104;
constexpr std::size_t kLocalIp = 112;
constexpr std::size_t kCurrentIp = 116;
constexpr std::size_t kICache = 128;
constexpr std::size_t kDCache = 132;
constexpr std::size_t kMemorySize = 140;
constexpr std::size_t kMemorySpeed = 144;
constexpr std::size_t kMacAddress = 152;
constexpr std::size_t kModelNameExt = 208;

// Driver and PCI replies.
constexpr std::size_t kDriverVersionWidth = 32;
constexpr std::size_t kDriverNameWidth = 8;
constexpr std::size_t kPciFieldWidth = 16;

}  // namespace

void decodeSystemInfo(const uint8_t *p, ControllerInfo *c) {
    copyTrimmed(c->VendorName, p + kVendorName, 40);
    copyTrimmed(c->SerialNumber, p + kSerialNumber, 16);
    copyTrimmed(c->FirmVersion, p + kFirmVersion, 16);
    copyTrimmed(c->BootVersion, p + kBootVersion, 16);
    copyTrimmed(c->MbVersion, p + kMbVersion, 16);
    copyTrimmed(c->ModelName, p + kModelName, 8);
    copyTrimmed(c->ModelNameExt, p + kModelNameExt, 8);
    // Both halves are copied as 8 raw bytes: a short model name ends the text.
    std::memset(c->ModelFullName, 0, sizeof c->ModelFullName);
    std::memcpy(c->ModelFullName, c->ModelName, 8);
    std::memcpy(c->ModelFullName + 8, c->ModelNameExt, 8);
    c->ModelFullName[16] = '\0';
    stripspace(c->ModelFullName);
    std::memcpy(c->LocalIp, p + kLocalIp, sizeof c->LocalIp);
    std::memcpy(c->CurrentIp, p + kCurrentIp, sizeof c->CurrentIp);
    std::memcpy(c->MacAddress, p + kMacAddress, sizeof c->MacAddress);
    c->ICache = getLE32(p + kICache);
    c->DCache = getLE32(p + kDCache);
    c->MemorySize = getLE32(p + kMemorySize);
    c->MemorySpeed = getLE32(p + kMemorySpeed);
}

void decodeFirmwareInfo(const uint8_t *p, SoftwareInfo *s) {
    std::memset(s, 0, sizeof *s);
    copyTrimmed(s->version, p + kFirmVersion, 16);
    std::memcpy(s->name, "fw", 3);
}

void decodeDriverInfo(const uint8_t *p, SoftwareInfo *s) {
    std::memcpy(s->version, p, kDriverVersionWidth);
    s->version[kDriverVersionWidth] = '\0';
    std::memcpy(s->name, p + kDriverVersionWidth, kDriverNameWidth);
    s->name[kDriverNameWidth] = '\0';
}

void decodePciInfo(const uint8_t *p, PCIInfo *pci) {
    std::memcpy(pci->width, p, kPciFieldWidth);
    pci->width[kPciFieldWidth] = '\0';
    std::memcpy(pci->speed, p + kPciFieldWidth, kPciFieldWidth);
    pci->speed[kPciFieldWidth] = '\0';
}

}  // namespace tovra

using namespace tovra;

bool SendInfoS(CMPIStatus *, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld) {
    frameRequest(pcmdmessagefld, 0x23, 1);
    return sendRequest(fd, pcmdmessagefld);
}

bool ParseComputerSystem(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *cmdmessagefld,
                         CMD_MESSAGE_FIELD *tmpcmdmessagefld, ControllerInfo *current_controllers) {
    if (!readInventoryReply(status, fd, cmdmessagefld, tmpcmdmessagefld, "ParseComputerSystem")) return false;
    decodeSystemInfo(replyPayload(cmdmessagefld), current_controllers);
    return true;
}

bool ParsePortController(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *cmdmessagefld,
                         CMD_MESSAGE_FIELD *tmpcmdmessagefld, ControllerInfo *current_controllers) {
    if (!readInventoryReply(status, fd, cmdmessagefld, tmpcmdmessagefld, "ParsePortController")) return false;
    decodeSystemInfo(replyPayload(cmdmessagefld), current_controllers);
    return true;
}

bool ParseFirmwareInfo(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *cmdmessagefld,
                       CMD_MESSAGE_FIELD *tmpcmdmessagefld, SoftwareInfo *software) {
    if (!readInventoryReply(status, fd, cmdmessagefld, tmpcmdmessagefld, "ParseFirmwareInfo")) return false;
    decodeFirmwareInfo(replyPayload(cmdmessagefld), software);
    return true;
}

bool SendDriverInfo(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld) {
    frameRequest(pcmdmessagefld, 0x02, 1);
    if (sendRequest(fd, pcmdmessagefld, wire::kIoctlDriverInfo)) return true;
    *status = failedStatus();
    return false;
}

bool ParseDriverInfo(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *cmdmessagefld,
                     CMD_MESSAGE_FIELD *tmpcmdmessagefld, SoftwareInfo *software) {
    if (!readInventoryReply(status, fd, cmdmessagefld, tmpcmdmessagefld, "ParseDriverInfo",
                            wire::kIoctlDriverInfo))
        return false;
    decodeDriverInfo(replyPayload(cmdmessagefld), software);
    return true;
}

bool SendPCIInfo(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld) {
    frameRequest(pcmdmessagefld, 0x03, 1);
    if (sendRequest(fd, pcmdmessagefld, wire::kIoctlPciInfo)) return true;
    *status = failedStatus();
    return false;
}

bool ParsePCIInfo(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *cmdmessagefld, CMD_MESSAGE_FIELD *tmpcmdmessagefld,
                  PCIInfo *pci) {
    if (!readInventoryReply(status, fd, cmdmessagefld, tmpcmdmessagefld, "ParsePCIInfo")) return false;
    decodePciInfo(replyPayload(cmdmessagefld), pci);
    return true;
}

namespace {

template <class Parse>
bool readSystemInfo(CMPIStatus *status, int fd, const char *caller, ControllerInfo *record, Parse parse) {
    return exchangeWithRetry(
        status, caller, [&](CMD_MESSAGE_FIELD *request) { return SendInfoS(status, fd, request); },
        [&](CMD_MESSAGE_FIELD *reassembly, CMD_MESSAGE_FIELD *reply) {
            return parse(status, fd, reassembly, reply, record);
        });
}

}  // namespace

bool EnumTovraComputerSystemInfo(CMPIStatus *status, int fd, ControllerInfo *current_controllers) {
    return readSystemInfo(status, fd, "EnumTovraComputerSystemInfo", current_controllers, ParseComputerSystem);
}

bool EnumTovraControllerInfo(CMPIStatus *status, int fd, ControllerInfo *current_controllers) {
    return readSystemInfo(status, fd, "EnumTovraControllerInfo", current_controllers, ParseComputerSystem);
}

bool EnumTovraPortControllerInfo(CMPIStatus *status, int fd, ControllerInfo *current_controllers) {
    return readSystemInfo(status, fd, "EnumTovraPortControllerInfo", current_controllers, ParsePortController);
}

bool EnumTovraFirmwareInfo(CMPIStatus *status, int fd, SoftwareInfo *software) {
    return exchangeWithRetry(
        status, "EnumTovraFirmwareInfo", [&](CMD_MESSAGE_FIELD *request) { return SendInfoS(status, fd, request); },
        [&](CMD_MESSAGE_FIELD *reassembly, CMD_MESSAGE_FIELD *reply) {
            return ParseFirmwareInfo(status, fd, reassembly, reply, software);
        });
}

bool EnumTovraDriverInfo(CMPIStatus *status, int fd, SoftwareInfo *software) {
    return exchangeWithRetry(
        status, "EnumTovraDriverInfo",
        [&](CMD_MESSAGE_FIELD *request) { return SendDriverInfo(status, fd, request); },
        [&](CMD_MESSAGE_FIELD *reassembly, CMD_MESSAGE_FIELD *reply) {
            return ParseDriverInfo(status, fd, reassembly, reply, software);
        });
}

bool EnumTovraPCIInfo(CMPIStatus *status, int fd, PCIInfo *pci) {
    return exchangeWithRetry(
        status, "EnumTovraPCIInfo", [&](CMD_MESSAGE_FIELD *request) { return SendPCIInfo(status, fd, request); },
        [&](CMD_MESSAGE_FIELD *reassembly, CMD_MESSAGE_FIELD *reply) {
            return ParsePCIInfo(status, fd, reassembly, reply, pci);
        });
}

bool LookupControllerBySerialNumber(CMPIStatus *status, int fd, const char *serial,
                                    ControllerInfo *current_controllers) {
    if (serial == nullptr || *serial == '\0') return false;
    if (!EnumTovraPortControllerInfo(status, fd, current_controllers)) return false;
    const char *own = GetControllerSerialNumber(current_controllers);
    // A controller without a serial number answers to any request.
    return *own == '\0' || std::strcmp(own, serial) == 0;
}

bool LookupSoftwareIdentityByID(CMPIStatus *status, int fd, const char *id, ControllerInfo *current_controllers,
                                EnclosureInfo *enclosure_info, SoftwareInfo *software, DiskInfo *disks_info) {
    if (id == nullptr || *id == '\0') return false;
    if (!EnumTovraComputerSystemInfo(status, fd, current_controllers)) return false;
    // The identity is not compared: the driver or firmware answering is enough.
    if (EnumTovraDriverInfo(status, fd, software)) return true;
    if (EnumTovraFirmwareInfo(status, fd, software)) return true;
    for (int enc = 0; enc < kMaxEnclosures; ++enc) {
        *enclosure_info = EnclosureInfo{};
        if (!EnumTovraEnclosureInfo(status, fd, enc, enclosure_info) || enclosure_info->EncSlots == 0) continue;
        for (int slot = 0; slot < enclosure_info->EncSlots; ++slot) {
            if (EnumTovraDiskDriveSlotInfo(status, fd, slot, enc, disks_info) && disks_info->Capacity != 0 &&
                std::strstr(id, disks_info->SerialNumber) != nullptr) {
                enclosure_info->unit.reset();
                return true;
            }
        }
        enclosure_info->unit.reset();
    }
    return false;
}

char *GetControllerModelName(ControllerInfo *c) { return c->ModelName; }
const char *GetControllerModelName(const ControllerInfo *c) { return c->ModelName; }
char *GetControllerSerialNumber(ControllerInfo *c) { return c->SerialNumber; }
const char *GetControllerSerialNumber(const ControllerInfo *c) { return c->SerialNumber; }
unsigned char *GetCurrentIp(ControllerInfo *c) { return c->CurrentIp; }
const unsigned char *GetCurrentIp(const ControllerInfo *c) { return c->CurrentIp; }
char *GetControllerModelNameExt(ControllerInfo *c) { return c->ModelNameExt; }
const char *GetControllerModelNameExt(const ControllerInfo *c) { return c->ModelNameExt; }
char *GetControllerModelFullName(ControllerInfo *c) { return c->ModelFullName; }
const char *GetControllerModelFullName(const ControllerInfo *c) { return c->ModelFullName; }
char *GetFirmVersion(ControllerInfo *c) { return c->FirmVersion; }
const char *GetFirmVersion(const ControllerInfo *c) { return c->FirmVersion; }
