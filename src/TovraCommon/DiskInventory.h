// Physical disks: one disk per request, addressed by its zero-based enclosure
// and slot, plus the identify and preceding-enumeration requests, the lookups
// by position, serial number and package tag, and the walk over all disks.
#pragma once

#include "Controller.h"
#include "EnclosureInventory.h"

#include <cstddef>
#include <cstdint>
#include <utility>

// One SMART attribute as the firmware reports it.
struct sSMART_DATA {
    uint16_t smIndex;
    uint8_t smStatus;
    uint8_t smThreshold;
};

struct DiskSataData {
    sSMART_DATA Smart[9];
};

struct DiskSasData {
    uint16_t RotationRPM;
    uint16_t Temperature;
    uint16_t SmartSenseCode;
    uint16_t Reserved;
    uint64_t Attribute[20];
};

// Which half is filled follows DeviceType.
union DiskTypeData {
    DiskSataData sata;
    DiskSasData sas;
};

struct DiskInfo {
    char SerialNumber[20 + 1];
    char ModelName[40 + 1];
    char FirmRev[8 + 1];
    char UsageExt[17];  // name of the disk's RAID set; filled by the disk drive provider
    const char *DeviceType;
    const char *DeviceState;
    const char *Usage;
    char Enc[8];
    char Slot[8];
    uint32_t TimeOutCount;
    uint32_t MediaErrorCount;
    uint64_t Address;
    uint8_t RaidSetNumber;
    uint8_t EnclosureNumber;
    uint8_t SlotNumber;
    uint8_t CurrentUdmaMode;
    uint8_t UdmaMode;
    uint64_t Capacity;  // bytes
    DiskTypeData u;
};

// Removes trailing white space in place; returns s.
char *stripspace(char *s);

namespace tovra {

// Copies a fixed-width text field, terminates it after `width` bytes and
// removes trailing white space. `dst` holds at least width + 1 bytes.
void copyTrimmed(char *dst, const uint8_t *src, std::size_t width);

// "SAS" for an address in (0x5000000000000000, 0x5001000000000000], else "SATA".
const char *deviceTypeOf(uint64_t address);
// Decodes a disk information payload for the disk in `slot` of `enc`.
void decodeDiskInfo(const uint8_t *payload, int slot, int enc, DiskInfo *info);

}  // namespace tovra

bool SendDiskInfo(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld, int drv, int enc);
bool SendIdentify(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld);
bool ParseDiskInfo(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *cmdmessagefld, CMD_MESSAGE_FIELD *tmpcmdmessagefld,
                   int slot, int enc, DiskInfo *disks_info);
// True when the first payload byte is non-zero.
bool ParseIdentifyDevice(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *cmdmessagefld,
                         CMD_MESSAGE_FIELD *tmpcmdmessagefld);
bool EnumTovraDiskDriveSlotInfo(CMPIStatus *rc, int fd, int slot, int enc, DiskInfo *disks_info);
bool ProceedingIdentify(CMPIStatus *rc, int fd);

// The 0x1F query with a selector; its reader is true when the first payload
// byte is non-zero.
bool SendMISC(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld, int selector);
bool ParseMISC(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *cmdmessagefld, CMD_MESSAGE_FIELD *tmpcmdmessagefld);
bool PrecedingEnumeration(CMPIStatus *rc, int fd, int index);

bool LookupDiskDriveByEncSlot(CMPIStatus *rc, int fd, int enc, int slot, DiskInfo *disks_info,
                              ControllerInfo *current_controllers, EnclosureInfo *enclosure_info);
// Two-way, case-insensitive containment of `id` and a disk's serial number.
bool LookupDiskDriveBySerialNumber(CMPIStatus *rc, int fd, const char *id, ControllerInfo *current_controllers,
                                   EnclosureInfo *enclosure_info, DiskInfo *disks_info);
// The controller's serial number, or a disk's tag "enclosure * 256 + slot".
bool LookupPhysicalPackageByTag(CMPIStatus *rc, int fd, const char *id, ControllerInfo *current_controllers,
                                EnclosureInfo *enclosure_info, DiskInfo *disks_info);

// Walks every disk slot: enclosures 0 to 11 that read and have slots, each
// slot below EncSlots whose disk reads (empty slots included, with Capacity 0).
// onDisk(enclosure, disk) returns false to stop the walk. The enclosure's
// sensor array is released after its slots. The caller reads the controller
// first. Returns false when onDisk stopped the walk.
template <class F> bool WalkDisks(CMPIStatus *status, int fd, EnclosureInfo &enclosure, F &&onDisk) {
    for (int enc = 0; enc < tovra::kMaxEnclosures; ++enc) {
        enclosure = EnclosureInfo{};
        if (!EnumTovraEnclosureInfo(status, fd, enc, &enclosure) || enclosure.EncSlots == 0) continue;
        for (int slot = 0; slot < enclosure.EncSlots; ++slot) {
            DiskInfo disk{};
            if (!EnumTovraDiskDriveSlotInfo(status, fd, slot, enc, &disk)) continue;
            if (!onDisk(std::as_const(enclosure), disk)) {
                enclosure.unit.reset();
                return false;
            }
        }
        enclosure.unit.reset();
    }
    return true;
}

template <class F> bool WalkDisks(CMPIStatus *status, int fd, F &&onDisk) {
    EnclosureInfo enclosure{};
    return WalkDisks(status, fd, enclosure, std::forward<F>(onDisk));
}
