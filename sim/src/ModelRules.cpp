#include "ModelRules.h"

#include <algorithm>
#include <limits>

namespace tovra::sim {

namespace ds = diskstate;

DiskUsage usageOf(uint8_t s) {
    if (s & ds::FailedBit) return DiskUsage::Failed;
    if (s & ds::HotSpareBit) return DiskUsage::HotSpare;
    if (s & ds::PassThroughBit) return DiskUsage::PassThrough;
    if (s & ds::OfflinedBit) return DiskUsage::Offlined;
    if (!(s & ds::AvailableBit)) return DiskUsage::Unavailable;
    if (s & ds::FreeBit) return DiskUsage::Free;
    return DiskUsage::Member;
}

bool knownLevel(uint8_t code) { return code <= 4; }

unsigned minMembers(uint8_t code) {
    switch (code) {
    case 0: return 1;
    case 1: return 2;
    case 2:
    case 3: return 3;
    case 4: return 4;
    default: return 1;
    }
}

unsigned dataDisks(uint8_t code, unsigned n) {
    switch (code) {
    case 1: return std::max(1u, n / 2);
    case 2:
    case 3: return n > 1 ? n - 1 : 1;
    case 4: return n > 2 ? n - 2 : 1;
    default: return std::max(1u, n);
    }
}

unsigned faultTolerance(uint8_t code) {
    switch (code) {
    case 1:
    case 2:
    case 3: return 1;
    case 4: return 2;
    default: return 0;
    }
}

uint64_t memberBlocks(const Model &m, const RaidSet &rs) {
    if (rs.memberBlocks) return rs.memberBlocks;
    uint64_t smallest = std::numeric_limits<uint64_t>::max();
    for (const auto &mem : rs.members) {
        const Disk *d = m.disk(mem.enc, mem.slot);
        smallest = std::min<uint64_t>(smallest, d ? d->blocks : 0);
    }
    return rs.members.empty() ? 0 : smallest;
}

unsigned volumesOn(const Model &m, unsigned no) {
    unsigned n = 0;
    for (const auto &v : m.volumes)
        if (v && v->raidSet == no) ++n;
    return n;
}

uint64_t volumeBlocksPerMember(uint64_t blocks, uint8_t levelCode, unsigned members) {
    const uint64_t d = dataDisks(levelCode, members);
    return (blocks + d - 1) / d;
}

uint64_t usedPerMember(const Model &m, unsigned no, int exceptVolume) {
    if (no >= kRaidSetCount || !m.raidSets[no]) return 0;
    const unsigned n = static_cast<unsigned>(m.raidSets[no]->members.size());
    uint64_t used = 0;
    for (unsigned i = 0; i < kVolumeCount; ++i) {
        const auto &v = m.volumes[i];
        if (v && v->raidSet == no && static_cast<int>(i) != exceptVolume) used += volumeBlocksPerMember(v->blocks, v->levelCode, n);
    }
    return used;
}

uint64_t freePerMember(const Model &m, unsigned no, int exceptVolume) {
    if (no >= kRaidSetCount || !m.raidSets[no]) return 0;
    const uint64_t total = memberBlocks(m, *m.raidSets[no]);
    const uint64_t used = usedPerMember(m, no, exceptVolume);
    return used >= total ? 0 : total - used;
}

uint32_t failMask(const Model &m, const RaidSet &rs) {
    if (rs.rawFailMask) return *rs.rawFailMask;
    uint32_t mask = 0;
    for (size_t i = 0; i < rs.members.size() && i < 32; ++i) {
        const Disk *d = m.disk(rs.members[i].enc, rs.members[i].slot);
        if (rs.offline || !d || (d->state & ds::FailedBit)) mask |= 1u << i;
    }
    return mask;
}

static unsigned failedMembers(const Model &m, const RaidSet &rs) {
    unsigned n = 0;
    for (uint32_t mask = failMask(m, rs); mask; mask &= mask - 1) ++n;
    return n;
}

uint8_t raidStateCode(const Model &m, const RaidSet &rs) {
    if (rs.rawState) return *rs.rawState;
    if (rs.offline) return 1;  // Incomplete
    return failMask(m, rs) ? 5 : 3;  // Degraded : Normal
}

bool raidSetNormal(const Model &m, const RaidSet &rs) {
    return !rs.offline && failMask(m, rs) == 0 && raidStateCode(m, rs) == 3;
}

static const RaidSet *owner(const Model &m, const Volume &v) {
    return v.raidSet < kRaidSetCount && m.raidSets[v.raidSet] ? &*m.raidSets[v.raidSet] : nullptr;
}

uint32_t volumeFailMask(const Model &m, const Volume &v) {
    if (v.rawFailMask) return *v.rawFailMask;
    const RaidSet *rs = owner(m, v);
    return rs ? failMask(m, *rs) : 0;
}

uint32_t volumeStatus(const Model &m, const Volume &v) {
    if (v.rawVolumeStatus) return *v.rawVolumeStatus;
    const RaidSet *rs = owner(m, v);
    if (!rs) return 0;
    if (rs->offline || failedMembers(m, *rs) > faultTolerance(v.levelCode)) return 0x02;  // failed
    return 0;
}

uint32_t volumeState(const Volume &v) {
    if (v.rawVolState) return *v.rawVolState;
    uint32_t s = 0;
    if (v.scsi.tagged) s |= volstate::TaggedQueuing;
    if (v.scsi.cacheMode) s |= volstate::WriteBack;
    if (v.writeProtect) s |= volstate::WriteProtect;
    if (v.encrypted) s |= volstate::Encrypted;
    if (v.encrypted && v.keyUnlocked) s |= volstate::KeyUnlocked;
    return s;
}

uint8_t volumeMemberDisks(const Model &m, const Volume &v) {
    if (v.rawMemberDisks) return *v.rawMemberDisks;
    const RaidSet *rs = owner(m, v);
    return rs ? static_cast<uint8_t>(rs->members.size()) : 0;
}

uint32_t stripeBlocks(const Volume &v) {
    if (v.rawStripeWord) return *v.rawStripeWord;
    return (4u << std::min<unsigned>(v.stripeCode, 8)) * 2;  // KiB to 512-byte blocks
}

bool volumeNormal(const Model &m, const Volume &v) {
    return volumeFailMask(m, v) == 0 && volumeStatus(m, v) == 0;
}

bool scsiTargetInUse(const Model &m, uint8_t id, uint8_t lun, int exceptVolume, const Disk *exceptDisk) {
    for (unsigned i = 0; i < kVolumeCount; ++i) {
        const auto &v = m.volumes[i];
        if (v && static_cast<int>(i) != exceptVolume && v->scsi.id == id && v->scsi.lun == lun) return true;
    }
    for (const auto &enc : m.enclosures) {
        if (!enc.present) continue;
        for (const auto &d : enc.slots) {
            if (d && &*d != exceptDisk && d->blocks && usageOf(d->state) == DiskUsage::PassThrough &&
                d->scsi.id == id && d->scsi.lun == lun)
                return true;
        }
    }
    return false;
}

}  // namespace tovra::sim
