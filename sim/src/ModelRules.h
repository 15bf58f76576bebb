// RAID rules and derived wire values computed from the model.
#pragma once

#include <cstdint>

#include "tovrasim/Model.h"

namespace tovra::sim {

enum class DiskUsage { Failed, HotSpare, PassThrough, Offlined, Unavailable, Free, Member };

// Classifies a state byte by the same precedence the reader applies.
DiskUsage usageOf(uint8_t state);

// Level codes of the volume wire format.
bool knownLevel(uint8_t levelCode);
unsigned minMembers(uint8_t levelCode);
unsigned dataDisks(uint8_t levelCode, unsigned members);
unsigned faultTolerance(uint8_t levelCode);

uint64_t memberBlocks(const Model &m, const RaidSet &rs);
unsigned volumesOn(const Model &m, unsigned raidSetNo);
// Blocks each member gives a volume of `blocks` at a RAID level code.
uint64_t volumeBlocksPerMember(uint64_t blocks, uint8_t levelCode, unsigned members);
// Blocks per member taken by the volumes of a RAID set, optionally leaving one volume out.
uint64_t usedPerMember(const Model &m, unsigned raidSetNo, int exceptVolume = -1);
uint64_t freePerMember(const Model &m, unsigned raidSetNo, int exceptVolume = -1);

uint32_t failMask(const Model &m, const RaidSet &rs);
uint8_t raidStateCode(const Model &m, const RaidSet &rs);
bool raidSetNormal(const Model &m, const RaidSet &rs);

uint32_t volumeFailMask(const Model &m, const Volume &v);
uint32_t volumeStatus(const Model &m, const Volume &v);
uint32_t volumeState(const Volume &v);
uint8_t volumeMemberDisks(const Model &m, const Volume &v);
uint32_t stripeBlocks(const Volume &v);
bool volumeNormal(const Model &m, const Volume &v);

// True when a volume or pass-through disk other than the ones named uses id/lun.
bool scsiTargetInUse(const Model &m, uint8_t id, uint8_t lun, int exceptVolume = -1,
                     const Disk *exceptDisk = nullptr);

}  // namespace tovra::sim
