// RAID sets (numbers 0 to 7) and volume sets (numbers 0 to 31), read one set
// per request, with lookups by name and number.
#pragma once

#include "Controller.h"
#include "DiskInventory.h"

#include <cstdint>

// RAID level numbers. RAID 10 deliberately carries the number of RAID 1.
inline constexpr unsigned int RAIDLevel_0 = 0;
inline constexpr unsigned int RAIDLevel_1 = 1;
inline constexpr unsigned int RAIDLevel_10 = 1;
inline constexpr unsigned int RAIDLevel_3 = 3;
inline constexpr unsigned int RAIDLevel_30 = 30;
inline constexpr unsigned int RAIDLevel_5 = 5;
inline constexpr unsigned int RAIDLevel_50 = 50;
inline constexpr unsigned int RAIDLevel_6 = 6;
inline constexpr unsigned int RAIDLevel_60 = 60;

struct RAIDSetInfo {
    char RaidSetName[16 + 1];
    uint8_t DevArray[32];     // member devices, as reported; all zero: no RAID set
    uint8_t DevEncArray[32];  // each member's enclosure, as reported
    const char *RaidState;
    uint8_t MemberDisks;
    uint8_t FreeSegments;
    uint8_t Volumes;
    uint8_t RAIDSet_No;
    uint32_t FailMask;
    uint32_t RawStripes;  // not filled by the decoder
    uint64_t Capacity;         // bytes
    uint64_t FreeRawCapacity;  // bytes
};

// The decoder writes only the fields it decodes: RaidLevel (for an unknown
// level code), VolumeStatus (for a status it does not know), NewStripeSize,
// VolState0 and len keep whatever the record held.
struct VolumeInfo {
    uint64_t Capacity;    // bytes
    uint64_t StripeSize;  // KiB
    uint64_t NewStripeSize;
    char VolumeName[16 + 1];
    char VolumeSerial[16 + 1];
    uint8_t RaidSetNumber;
    uint8_t VolState0;
    uint32_t VolumeNumber;  // 1 to 32
    uint32_t len;
    uint32_t MemberDisks;
    uint32_t RaidLevel;
    uint32_t Channel;
    uint32_t SCSIID;
    uint32_t SCSILun;
    uint32_t VolState;
    uint32_t Progress;
    uint8_t scsiCacheMode;
    const char *CacheMode;
    const char *WriteProtect;
    const char *TaggedQueuing;
    const char *VolumeEncryption;
    const char *KeyValidated;
    const char *VolumeStatus;
};

namespace tovra {

inline constexpr int kMaxRaidSets = 8;
inline constexpr int kMaxVolumes = 32;

// Decodes a RAID set payload; false when the number holds no RAID set.
bool decodeRaidSet(const uint8_t *payload, int raidset, RAIDSetInfo *info);
void decodeVolume(const uint8_t *payload, int vol, VolumeInfo *info);

}  // namespace tovra

bool SendRAIDsInfo(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld, int raidset);
bool SendVolumeInfo(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld, int vol);
bool ParseRAIDsInfo(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *cmdmessagefld, CMD_MESSAGE_FIELD *tmpcmdmessagefld,
                    int raidset, RAIDSetInfo *RAIDs_info);
bool ParseVolumeInfo(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *cmdmessagefld, CMD_MESSAGE_FIELD *tmpcmdmessagefld,
                     int vol, VolumeInfo *volumes_info);
bool EnumTovraRAIDsInfo(CMPIStatus *rc, int fd, int raidset, RAIDSetInfo *RAIDs_info);
bool EnumTovraVolumeInfo(CMPIStatus *rc, int fd, int vol, VolumeInfo *volumes_info);

bool LookupVolumeByNo(CMPIStatus *rc, int fd, int vol, VolumeInfo *volumes_info);
// The first RAID set with a capacity whose name equals `name` or is empty.
bool LookupRAIDSetByAddress(CMPIStatus *rc, int fd, const char *name, ControllerInfo *current_controllers,
                            RAIDSetInfo *RAIDs_info);
// The first volume with a capacity whose name equals `name` or is empty.
bool LookupVolumeByName(CMPIStatus *rc, int fd, const char *name, ControllerInfo *current_controllers,
                        VolumeInfo *volumes_info);
// 0: a disk's serial number equals dev_id; 1: a volume's name; 2: a RAID set's
// name; -1: none of them, or an empty dev_id.
int LookupStorageExtentByDeviceID(CMPIStatus *rc, int fd, const char *dev_id, DiskInfo *disks_info,
                                  RAIDSetInfo *RAIDs_info, VolumeInfo *volumes_info);
