#include "RaidInventory.h"

#include <algorithm>
#include <cstring>

char *GetRAIDSetName(RAIDSetInfo *r) { return r->RaidSetName; }
const char *GetRAIDSetName(const RAIDSetInfo *r) { return r->RaidSetName; }
char *GetVolumeName(VolumeInfo *v) { return v->VolumeName; }
const char *GetVolumeName(const VolumeInfo *v) { return v->VolumeName; }

namespace tovra {

using wire::getLE32;
using wire::getLE64;

namespace {

// sGUI_RAIDSET offsets.
constexpr std::size_t kRaidSetName = 0;
constexpr std::size_t kGrsCapacity = 16;
constexpr std::size_t kGrsFailMask = 24;
constexpr std::size_t kGrsDevArray = 28;
constexpr std::size_t kGrsMemberDisks = 60;
constexpr std::size_t kGrsRaidState = 62;
constexpr std::size_t kGrsVolumes = 63;
constexpr std::size_t kGrsFreeSegments = 83;
constexpr std::size_t kGrsRawStripes = 84;
constexpr std::size_t kGrsDevEncArray = 216;

// sGUI_VOLUMESET offsets.
constexpr std::size_t kVolumeName = 0;
constexpr std::size_t kGvsCapacity = 16;
constexpr std::size_t kGvsFailMask = 24;
constexpr std::size_t kGvsNewStripeSize = 36;
constexpr std::size_t kGvsVolumeStatus = 40;
constexpr std::size_t kGvsProgress = 44;
constexpr std::size_t kGvsScsi = 48;  // channel, id, lun, tagged queuing, cache mode, speed
constexpr std::size_t kGvsMemberDisks = 54;
constexpr std::size_t kGvsRaidLevel = 55;
constexpr std::size_t kGvsRaidSetNumber = 58;
constexpr std::size_t kGvsVolState = 64;
constexpr std::size_t kGvsSerial = 94;

constexpr uint64_t kRawStripeBytes = 262144;  // one raw stripe unit: 256 KiB

constexpr const char *kRaidStates[] = {"",         "Incomplete", "Migrating", "Normal", "Init",
                                       "Degraded", "Rebuilding", "Checking",  "Cloning"};

// Volume state word bits.
constexpr uint32_t kTaggedQueuingBit = 0x40;
constexpr uint32_t kWriteBackBit = 0x80;
constexpr uint32_t kWriteProtectBit = 0x4000;
constexpr uint32_t kEncryptedBit = 0x8000;
constexpr uint32_t kKeyUnlockedBit = 0x40000000;

constexpr const char kLocked[] = "Locked";

// Status for a volume without failed members, by the first bit set.
struct StatusBit {
    uint32_t bit;
    const char *text;
};
constexpr StatusBit kStatusBits[] = {
    {0x04, "Migrating"}, {0x20, "Need Migrate"}, {0x01, "Initializing"}, {0x10, "Need Init"}, {0x80, "Need Rebuild"},
};

const char *enabledIf(bool on) { return on ? "Enabled" : "Disabled"; }

void decodeRaidLevel(uint8_t code, VolumeInfo *v) {
    switch (code) {
        case 0: v->RaidLevel = RAIDLevel_0; break;
        case 1: v->RaidLevel = v->MemberDisks <= 1 ? RAIDLevel_1 : RAIDLevel_10; break;
        case 2: v->RaidLevel = RAIDLevel_3; break;
        case 3: v->RaidLevel = RAIDLevel_5; break;
        case 4: v->RaidLevel = RAIDLevel_6; break;
        default: break;  // unknown codes leave the level as it was
    }
}

void decodeVolumeStatus(uint32_t failMask, uint32_t status, VolumeInfo *v) {
    if (failMask != 0) {
        v->VolumeStatus = (status & 0x08) ? "Rebuilding" : (status & 0x02) ? "Failed" : "Degraded";
        return;
    }
    if (status == 0) {
        v->VolumeStatus = "Normal";
        return;
    }
    for (const StatusBit &s : kStatusBits) {
        if (status & s.bit) {
            v->VolumeStatus = s.text;
            return;
        }
    }
    if (v->KeyValidated == kLocked) v->VolumeStatus = kLocked;
}

}  // namespace

bool decodeRaidSet(const uint8_t *p, int raidset, RAIDSetInfo *r) {
    copyTrimmed(r->RaidSetName, p + kRaidSetName, 16);
    r->FailMask = getLE32(p + kGrsFailMask);
    r->MemberDisks = p[kGrsMemberDisks];
    r->Capacity = getLE64(p + kGrsCapacity) * 512u * r->MemberDisks;
    r->FreeRawCapacity = uint64_t{r->MemberDisks} * getLE32(p + kGrsRawStripes) * kRawStripeBytes;
    r->FreeSegments = p[kGrsFreeSegments];
    std::memcpy(r->DevArray, p + kGrsDevArray, sizeof r->DevArray);
    std::memcpy(r->DevEncArray, p + kGrsDevEncArray, sizeof r->DevEncArray);
    if (std::all_of(std::begin(r->DevArray), std::end(r->DevArray), [](uint8_t b) { return b == 0; })) return false;
    r->RAIDSet_No = static_cast<uint8_t>(raidset);
    // The state code counts only once a member has failed.
    const uint8_t state = p[kGrsRaidState];
    if (r->FailMask == 0)
        r->RaidState = "Normal";
    else
        r->RaidState = state < std::size(kRaidStates) ? kRaidStates[state] : "";
    r->Volumes = p[kGrsVolumes];
    return true;
}

void decodeVolume(const uint8_t *p, int vol, VolumeInfo *v) {
    copyTrimmed(v->VolumeName, p + kVolumeName, 16);
    copyTrimmed(v->VolumeSerial, p + kGvsSerial, 16);
    v->Capacity = getLE64(p + kGvsCapacity) * 512u;
    // 32-bit arithmetic on purpose: the product wraps before the division.
    v->StripeSize = static_cast<uint32_t>(getLE32(p + kGvsNewStripeSize) * 512u) / 1024u;
    v->MemberDisks = p[kGvsMemberDisks];
    decodeRaidLevel(p[kGvsRaidLevel], v);
    v->Channel = p[kGvsScsi];
    v->SCSIID = p[kGvsScsi + 1];
    v->SCSILun = p[kGvsScsi + 2];
    v->scsiCacheMode = p[kGvsScsi + 4];
    const uint32_t state = getLE32(p + kGvsVolState);
    v->VolState = state;
    v->VolumeNumber = static_cast<uint32_t>(vol) + 1;
    v->CacheMode = (state & kWriteBackBit) ? "Write Back" : "Write Through";
    v->WriteProtect = enabledIf(state & kWriteProtectBit);
    v->TaggedQueuing = enabledIf(state & kTaggedQueuingBit);
    if (state & kEncryptedBit) {
        v->VolumeEncryption = "Encrypted";
        v->KeyValidated = (state & kKeyUnlockedBit) ? "Unlocked" : kLocked;
    } else {
        v->VolumeEncryption = "Non-Encrypted";
        v->KeyValidated = "";
    }
    v->RaidSetNumber = p[kGvsRaidSetNumber];
    v->Progress = getLE32(p + kGvsProgress);
    decodeVolumeStatus(getLE32(p + kGvsFailMask), getLE32(p + kGvsVolumeStatus), v);
}

}  // namespace tovra

using namespace tovra;

namespace {

bool sendSetRequest(int fd, CMD_MESSAGE_FIELD *m, uint8_t command, int number) {
    const uint8_t params[] = {static_cast<uint8_t>(number), 0};
    frameRequest(m, command, 3, params);
    return sendRequest(fd, m);
}

}  // namespace

bool SendRAIDsInfo(CMPIStatus *, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld, int raidset) {
    return sendSetRequest(fd, pcmdmessagefld, 0x20, raidset);
}

bool SendVolumeInfo(CMPIStatus *, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld, int vol) {
    return sendSetRequest(fd, pcmdmessagefld, 0x21, vol);
}

bool ParseRAIDsInfo(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *cmdmessagefld, CMD_MESSAGE_FIELD *tmpcmdmessagefld,
                    int raidset, RAIDSetInfo *RAIDs_info) {
    if (!readInventoryReply(rc, fd, cmdmessagefld, tmpcmdmessagefld, "ParseRAIDsInfo")) return false;
    return decodeRaidSet(replyPayload(cmdmessagefld), raidset, RAIDs_info);
}

bool ParseVolumeInfo(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *cmdmessagefld, CMD_MESSAGE_FIELD *tmpcmdmessagefld,
                     int vol, VolumeInfo *volumes_info) {
    if (!readInventoryReply(rc, fd, cmdmessagefld, tmpcmdmessagefld, "ParseVolumeInfo")) return false;
    decodeVolume(replyPayload(cmdmessagefld), vol, volumes_info);
    return true;
}

bool EnumTovraRAIDsInfo(CMPIStatus *rc, int fd, int raidset, RAIDSetInfo *RAIDs_info) {
    return exchangeWithRetry(
        rc, "EnumTovraRAIDsInfo", [&](CMD_MESSAGE_FIELD *request) { return SendRAIDsInfo(rc, fd, request, raidset); },
        [&](CMD_MESSAGE_FIELD *reassembly, CMD_MESSAGE_FIELD *reply) {
            return ParseRAIDsInfo(rc, fd, reassembly, reply, raidset, RAIDs_info);
        });
}

bool EnumTovraVolumeInfo(CMPIStatus *rc, int fd, int vol, VolumeInfo *volumes_info) {
    return exchangeWithRetry(
        rc, "EnumTovraVolumeInfo", [&](CMD_MESSAGE_FIELD *request) { return SendVolumeInfo(rc, fd, request, vol); },
        [&](CMD_MESSAGE_FIELD *reassembly, CMD_MESSAGE_FIELD *reply) {
            return ParseVolumeInfo(rc, fd, reassembly, reply, vol, volumes_info);
        });
}

bool LookupVolumeByNo(CMPIStatus *rc, int fd, int vol, VolumeInfo *volumes_info) {
    return EnumTovraVolumeInfo(rc, fd, vol, volumes_info);
}

namespace {

// A set with an empty name matches any name; this is kept.
bool nameMatches(const char *own, const char *wanted) { return *own == '\0' || std::strcmp(own, wanted) == 0; }

template <class F> bool anyRaidSet(CMPIStatus *rc, int fd, RAIDSetInfo *r, F &&matches) {
    for (int n = 0; n < kMaxRaidSets; ++n)
        if (EnumTovraRAIDsInfo(rc, fd, n, r) && r->Capacity != 0 && matches(*r)) return true;
    return false;
}

template <class F> bool anyVolume(CMPIStatus *rc, int fd, VolumeInfo *v, F &&matches) {
    for (int n = 0; n < kMaxVolumes; ++n)
        if (EnumTovraVolumeInfo(rc, fd, n, v) && v->Capacity != 0 && matches(*v)) return true;
    return false;
}

}  // namespace

bool LookupRAIDSetByAddress(CMPIStatus *rc, int fd, const char *name, ControllerInfo *current_controllers,
                            RAIDSetInfo *RAIDs_info) {
    if (name == nullptr || *name == '\0') return false;
    if (!EnumTovraComputerSystemInfo(rc, fd, current_controllers)) return false;
    return anyRaidSet(rc, fd, RAIDs_info, [&](const RAIDSetInfo &r) { return nameMatches(r.RaidSetName, name); });
}

bool LookupVolumeByName(CMPIStatus *rc, int fd, const char *name, ControllerInfo *current_controllers,
                        VolumeInfo *volumes_info) {
    if (name == nullptr || *name == '\0') return false;
    if (!EnumTovraComputerSystemInfo(rc, fd, current_controllers)) return false;
    return anyVolume(rc, fd, volumes_info, [&](const VolumeInfo &v) { return nameMatches(v.VolumeName, name); });
}

int LookupStorageExtentByDeviceID(CMPIStatus *rc, int fd, const char *dev_id, DiskInfo *disks_info,
                                  RAIDSetInfo *RAIDs_info, VolumeInfo *volumes_info) {
    if (dev_id == nullptr || *dev_id == '\0') return -1;
    for (int enc = 0; enc < kMaxEnclosures; ++enc) {
        const int slots = enc == 0 ? 8 : 28;
        for (int slot = 0; slot < slots; ++slot) {
            if (EnumTovraDiskDriveSlotInfo(rc, fd, slot, enc, disks_info) &&
                std::strcmp(disks_info->SerialNumber, dev_id) == 0)
                return 0;
        }
    }
    if (PrecedingEnumeration(rc, fd, 5) &&
        anyVolume(rc, fd, volumes_info, [&](const VolumeInfo &v) { return std::strcmp(v.VolumeName, dev_id) == 0; }))
        return 1;
    if (!PrecedingEnumeration(rc, fd, 4)) return -1;
    return anyRaidSet(rc, fd, RAIDs_info,
                      [&](const RAIDSetInfo &r) { return std::strcmp(r.RaidSetName, dev_id) == 0; })
               ? 2
               : -1;
}
