// Volume sets: create (0x60), modify (0x61), delete (0x62).
#include <algorithm>
#include <cstdio>

#include "Firmware.h"
#include "ModelRules.h"
#include "Wire.h"

namespace tovra::sim {

namespace {

constexpr uint8_t kMaxStripeCode = 8;
constexpr uint8_t kMaxId = 15;
constexpr uint8_t kMaxLun = 7;

std::string nameAt(const Request &r, std::size_t at) {
    std::string s;
    for (std::size_t i = 0; i < 16 && r.at(at + i); ++i) s.push_back(static_cast<char>(r.at(at + i)));
    return s;
}

uint64_t blocksAt(const Request &r, std::size_t at) { return wire::getLE64(r.buf + at); }

// The definition shared by create and modify: [7..22] name, [23..30] blocks,
// [31] level, [32] stripe, [34] id, [35] lun, [36] tag, [37] cache.
struct Definition {
    std::string name;
    uint64_t blocks;
    uint8_t level, stripe, id, lun, tag, cache;
};

Definition definitionOf(const Request &r) {
    return Definition{nameAt(r, 7), blocksAt(r, 23), r.at(31), r.at(32), r.at(34), r.at(35), r.at(36), r.at(37)};
}

// Checks a definition against the owning RAID set; 'A' when it can be applied.
char check(const Model &m, const Definition &d, unsigned raidSetNo, int volumeNo) {
    const RaidSet &rs = *m.raidSets[raidSetNo];
    if (!raidSetNormal(m, rs)) return result::RaidSetNotNormal;
    const auto members = static_cast<unsigned>(rs.members.size());
    if (!knownLevel(d.level) || members < minMembers(d.level) || d.stripe > kMaxStripeCode || d.blocks == 0 ||
        d.id > kMaxId || d.lun > kMaxLun || scsiTargetInUse(m, d.id, d.lun, volumeNo))
        return result::BadParameter;
    if (volumeBlocksPerMember(d.blocks, d.level, members) > freePerMember(m, raidSetNo, volumeNo)) return result::NoSpace;
    return result::Ok;
}

void apply(Volume &v, const Definition &d) {
    v.name = d.name;
    v.blocks = d.blocks;
    v.levelCode = d.level;
    v.stripeCode = d.stripe;
    v.scsi = ScsiAttr{0, d.id, d.lun, d.tag, d.cache, 0};
}

std::string volumeLabel(const Volume &v, unsigned no) {
    return v.name.empty() ? "VolumeSet #" + std::to_string(no) : v.name;
}

Outcome create(Context &ctx) {
    const Request &r = ctx.req;
    Model &m = ctx.model;
    const unsigned raidSetNo = r.at(6);
    if (raidSetNo >= kRaidSetCount || !m.raidSets[raidSetNo]) return reply(result::NoRaidSet);
    const Definition d = definitionOf(r);
    if (const char refusal = check(m, d, raidSetNo, -1); refusal != result::Ok) return reply(refusal);
    const auto slot = std::find_if(m.volumes.begin(), m.volumes.end(), [](const auto &v) { return !v; });
    if (slot == m.volumes.end()) return reply(result::BadParameter);
    const auto no = static_cast<unsigned>(slot - m.volumes.begin());
    Volume v;
    apply(v, d);
    v.raidSet = static_cast<uint8_t>(raidSetNo);
    v.foregroundInit = r.at(39) & 1;
    v.over2TB = r.at(39) & 2;
    v.encryptionType = r.at(40);
    char serial[17];
    std::snprintf(serial, sizeof serial, "%08X%08X", 0x7D0A0000u + no, m.nextSerial++);
    v.serial = serial;
    *slot = v;
    ctx.event(0, volumeLabel(v, no), "Create Volume");
    return reply(result::Ok, true);
}

Outcome modify(Context &ctx, unsigned no) {
    Model &m = ctx.model;
    Volume &v = *m.volumes[no];
    if (!volumeNormal(m, v)) return reply(result::VolumeNotNormal);
    if (v.raidSet >= kRaidSetCount || !m.raidSets[v.raidSet]) return reply(result::NoRaidSet);
    const Definition d = definitionOf(ctx.req);
    if (d.blocks < v.blocks) return reply(result::BadParameter);
    if (const char refusal = check(m, d, v.raidSet, static_cast<int>(no)); refusal != result::Ok)
        return reply(refusal);
    apply(v, d);
    ctx.event(0, volumeLabel(v, no), "Modify Volume");
    return reply(result::Ok, true);
}

}  // namespace

Outcome volumeCommand(Context &ctx) {
    if (ctx.req.cmd() == 0x60) return create(ctx);
    const unsigned no = ctx.req.at(6);
    if (no >= kVolumeCount || !ctx.model.volumes[no]) return reply(result::NoVolume);
    if (ctx.req.cmd() == 0x61) return modify(ctx, no);
    const std::string label = volumeLabel(*ctx.model.volumes[no], no);
    ctx.model.volumes[no].reset();
    ctx.event(0, label, "Delete Volume");
    return reply(result::Ok, true);
}

}  // namespace tovra::sim
