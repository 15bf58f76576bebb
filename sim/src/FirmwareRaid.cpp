// RAID sets (0x50 create, 0x51 delete, 0x52 expand, 0x53 activate, 0x56 offline)
// and hot spares (0x54 create, 0x55 delete).
#include <algorithm>

#include "Firmware.h"
#include "ModelRules.h"

namespace tovra::sim {

namespace {

std::string trimmedName(const Request &r, std::size_t at, std::size_t width) {
    std::string s;
    for (std::size_t i = 0; i < width; ++i) s.push_back(static_cast<char>(r.at(at + i)));
    while (!s.empty() && (s.back() == ' ' || s.back() == '\0')) s.pop_back();
    return s;
}

// Checks a list of new member positions: each must hold a free disk, once.
char checkNewMembers(const Model &m, const std::vector<Member> &members, const std::vector<Member> &existing) {
    for (std::size_t i = 0; i < members.size(); ++i) {
        const Disk *d = m.disk(members[i].enc, members[i].slot);
        if (!d) return result::NoDisk;
        if (usageOf(d->state) != DiskUsage::Free) return result::BadParameter;
        const auto dup = [&](const Member &x) { return x == members[i]; };
        if (std::any_of(members.begin(), members.begin() + static_cast<long>(i), dup) ||
            std::any_of(existing.begin(), existing.end(), dup))
            return result::BadParameter;
    }
    return result::Ok;
}

void join(Model &m, const std::vector<Member> &members, unsigned no) {
    for (const Member &mem : members) {
        Disk *d = m.disk(mem.enc, mem.slot);
        d->state = diskstate::Member;
        d->raidSet = static_cast<uint8_t>(no);
    }
}

// 0x50: [6] n, [10..25] name (blank padded), [26] mode, from [27] n pairs
// (enclosure, disk). The disk byte is 0-based when the enclosure byte is 1 and
// 1-based otherwise, as the management software sends it.
Outcome create(Context &ctx) {
    const Request &r = ctx.req;
    Model &m = ctx.model;
    const unsigned n = r.at(6);
    if (n == 0 || n > kMaxMembers || r.len < 22 + 2 * n) return reply(result::BadParameter);
    std::vector<Member> members;
    for (unsigned i = 0; i < n; ++i) {
        const uint8_t enc = r.at(27 + 2 * i), disk = r.at(28 + 2 * i);
        if (enc != 1 && disk == 0) return reply(result::NoDisk);
        members.push_back(Member{enc, static_cast<uint8_t>(enc == 1 ? disk : disk - 1)});
    }
    const auto slot = std::find_if(m.raidSets.begin(), m.raidSets.end(), [](const auto &rs) { return !rs; });
    if (slot == m.raidSets.end()) return reply(result::BadParameter);
    if (const char refusal = checkNewMembers(m, members, {}); refusal != result::Ok) return reply(refusal);
    const auto no = static_cast<unsigned>(slot - m.raidSets.begin());
    RaidSet rs;
    rs.name = trimmedName(r, 10, 16);
    rs.members = members;
    *slot = rs;
    join(m, members, no);
    ctx.event(0, setLabel(rs, no), "Create RaidSet");
    return reply(result::Ok, true);
}

// 0x52, always 1024 bytes long: [6] set, [7] n, from [11] n pairs
// (enclosure - 1, disk - 1).
constexpr uint16_t kExpandLength = 1024;

Outcome expand(Context &ctx, RaidSet &rs, unsigned no) {
    const Request &r = ctx.req;
    Model &m = ctx.model;
    const unsigned n = r.at(7);
    if (r.len != kExpandLength || n == 0 || rs.members.size() + n > kMaxMembers)
        return reply(result::BadParameter);
    if (!raidSetNormal(m, rs)) return reply(result::RaidSetNotNormal);
    std::vector<Member> members;
    for (unsigned i = 0; i < n; ++i) members.push_back(Member{r.at(11 + 2 * i), r.at(12 + 2 * i)});
    if (const char refusal = checkNewMembers(m, members, rs.members); refusal != result::Ok) return reply(refusal);
    const uint64_t need = memberBlocks(m, rs);
    for (const Member &mem : members)
        if (m.disk(mem.enc, mem.slot)->blocks < need) return reply(result::NoSpace);
    rs.members.insert(rs.members.end(), members.begin(), members.end());
    join(m, members, no);
    ctx.event(0, setLabel(rs, no), "Expand RaidSet");
    return reply(result::Ok, true);
}

Outcome remove(Context &ctx, unsigned no) {
    Model &m = ctx.model;
    RaidSet &rs = *m.raidSets[no];
    if (volumesOn(m, no)) return reply(result::RaidSetNotNormal);
    const std::string label = setLabel(rs, no);
    for (const Member &mem : rs.members) {
        Disk *d = m.disk(mem.enc, mem.slot);
        if (!d) continue;
        d->raidSet = kNoRaidSet;
        if (usageOf(d->state) == DiskUsage::Member) d->state = diskstate::Free;
    }
    for (auto &enc : m.enclosures)
        for (auto &d : enc.slots)
            if (d && usageOf(d->state) == DiskUsage::HotSpare && d->hotSpareRaidSet == no) {
                d->state = diskstate::Free;
                d->hotSpareRaidSet = kNoRaidSet;
            }
    m.raidSets[no].reset();
    ctx.event(0, label, "Delete RaidSet");
    return reply(result::Ok, true);
}

// 0x54: [10] enclosure, [11] disk, [12] type (0 global, 1 dedicated), [13] set.
// 0x55: [10] enclosure, [11] disk.
Outcome hotSpare(Context &ctx) {
    const Request &r = ctx.req;
    Model &m = ctx.model;
    const unsigned enc = r.at(10), slot = r.at(11);
    Disk *d = m.disk(enc, slot);
    if (!d) return reply(result::NoDisk);
    if (r.cmd() == 0x55) {
        if (usageOf(d->state) != DiskUsage::HotSpare) return reply(result::BadParameter);
        d->state = diskstate::Free;
        d->hotSpareType = 0;
        d->hotSpareRaidSet = kNoRaidSet;
        ctx.event(0, diskLabel(enc, slot), "Delete Hot Spare");
        return reply(result::Ok, true);
    }
    const uint8_t type = r.at(12), set = r.at(13);
    if (usageOf(d->state) != DiskUsage::Free || type > 1) return reply(result::BadParameter);
    if (type == 1 && (set >= kRaidSetCount || !m.raidSets[set])) return reply(result::NoRaidSet);
    d->state = diskstate::HotSpare;
    d->hotSpareType = type;
    d->hotSpareRaidSet = type == 1 ? set : kNoRaidSet;
    ctx.event(0, diskLabel(enc, slot), "Create Hot Spare");
    return reply(result::Ok, true);
}

}  // namespace

std::string setLabel(const RaidSet &rs, unsigned no) {
    return rs.name.empty() ? "RaidSet #" + std::to_string(no) : rs.name;
}

Outcome raidSetCommand(Context &ctx) {
    const uint8_t cmd = ctx.req.cmd();
    if (cmd == 0x50) return create(ctx);
    if (cmd == 0x54 || cmd == 0x55) return hotSpare(ctx);
    const unsigned no = ctx.req.at(6);
    if (no >= kRaidSetCount || !ctx.model.raidSets[no]) return reply(result::NoRaidSet);
    RaidSet &rs = *ctx.model.raidSets[no];
    switch (cmd) {
    case 0x51: return remove(ctx, no);
    case 0x52: return expand(ctx, rs, no);
    case 0x53:
        rs.offline = false;
        ctx.event(0, setLabel(rs, no), "Activate RaidSet");
        return reply(result::Ok, true);
    case 0x56:
        rs.offline = true;
        ctx.event(1, setLabel(rs, no), "Offline RaidSet");
        return reply(result::Ok, true);
    default: return reply(result::Unsupported);
    }
}

}  // namespace tovra::sim
