// Read commands: system information, RAID sets, volume sets, disks, identify.
#include <algorithm>

#include "Firmware.h"
#include "ModelRules.h"

namespace tovra::sim {

namespace {

Bytes systemInfo(const Model &m) {
    const Controller &c = m.controller;
    PayloadWriter w(256);
    w.text(0, 40, c.vendor);
    w.text(40, 16, c.serial);
    w.text(56, 16, c.firmware);
    w.text(72, 16, c.boot);
    w.text(88, 16, c.mb);
    w.text(104, 8, c.model);
    w.raw(112, c.localIp);
    w.raw(116, c.currentIp);
    w.u32(120, c.timeTick);
    w.u32(124, c.cpuSpeed);
    w.u32(128, c.iCache);
    w.u32(132, c.dCache);
    w.u32(136, c.sCache);
    w.u32(140, c.memorySize);
    w.u32(144, c.memorySpeed);
    w.u32(148, c.events.value_or(static_cast<uint32_t>(m.events.size())));
    w.raw(152, c.mac);
    w.u8(158, c.dhcp);
    w.u8(159, c.beeper);
    w.u8(160, c.channelUsage);
    w.u8(161, c.maxAtaMode);
    w.u8(162, c.sdramEcc);
    w.u8(163, c.rebuildPriority);
    w.raw(164, c.comA);
    w.raw(169, c.comB);
    w.u8(174, c.ideChannels);
    w.u8(175, c.scsiHostChannels);
    w.u8(176, c.ideHostChannels);
    w.u8(177, c.maxVolumeSet);
    w.u8(178, c.maxRaidSet);
    w.u8(179, c.etherPort);
    w.u8(180, c.raid6Engine);
    w.u8(181, c.mib1);
    w.u8(182, c.mib2);
    w.u32(184, c.enterpriseNum);
    w.u8(188, c.hostType);
    w.u8(189, c.targetType);
    w.u8(190, c.inBandEnable);
    w.u8(191, c.inBandChannel);
    w.u8(192, c.inBandId);
    const auto present = std::count_if(m.enclosures.begin(), m.enclosures.end(),
                                       [](const Enclosure &e) { return e.present; });
    w.u8(193, c.numberEnclosures.value_or(static_cast<uint8_t>(present)));
    w.u8(194, c.r5060Supported);
    w.u8(195, c.ntpSupported);
    w.u32(196, c.flag);
    w.u64(200, c.sasAddress);
    w.text(208, 8, c.modelExt);
    putNetworkSettings(m, w);
    return w.take();
}

// Member device numbers are reported 1-based so that a set never reads as all zero.
Bytes raidSetInfo(const Model &m, unsigned no) {
    PayloadWriter w(248);
    if (no >= kRaidSetCount || !m.raidSets[no]) return w.take();
    const RaidSet &rs = *m.raidSets[no];
    const auto n = std::min<std::size_t>(rs.members.size(), kMaxMembers);
    w.text(0, 16, rs.name);
    w.u64(16, memberBlocks(m, rs));
    w.u32(24, failMask(m, rs));
    std::array<uint8_t, 32> dev{}, enc{};
    for (std::size_t i = 0; i < n; ++i) {
        dev[i] = static_cast<uint8_t>(rs.members[i].slot + 1);
        enc[i] = static_cast<uint8_t>(rs.members[i].enc + 1);
    }
    w.raw(28, rs.rawDevArray.value_or(dev));
    w.u8(60, static_cast<uint8_t>(n));
    w.u8(61, rs.newMemberDisks);
    w.u8(62, raidStateCode(m, rs));
    w.u8(63, static_cast<uint8_t>(volumesOn(m, no)));
    unsigned listed = 0;
    for (unsigned v = 0; v < kVolumeCount && listed < 16; ++v)
        if (m.volumes[v] && m.volumes[v]->raidSet == no) w.u8(64 + listed++, static_cast<uint8_t>(v));
    w.u8(83, rs.freeSegments);
    // Free raw space per member in units of 256 KiB (512 blocks).
    w.u32(84, rs.rawStripes.value_or(static_cast<uint32_t>(freePerMember(m, no) / 512)));
    w.raw(216, rs.rawDevEncArray.value_or(enc));
    return w.take();
}

Bytes volumeInfo(const Model &m, unsigned no) {
    PayloadWriter w(124);
    if (no >= kVolumeCount || !m.volumes[no]) return w.take();
    const Volume &v = *m.volumes[no];
    w.text(0, 16, v.name);
    w.u64(16, v.blocks);
    w.u32(24, volumeFailMask(m, v));
    w.u32(28, stripeBlocks(v));
    w.u32(36, stripeBlocks(v));
    w.u32(40, volumeStatus(m, v));
    w.u32(44, v.progress);
    w.raw(48, std::array<uint8_t, 6>{v.scsi.channel, v.scsi.id, v.scsi.lun, v.scsi.tagged, v.scsi.cacheMode,
                                     v.scsi.speed});
    w.u8(54, volumeMemberDisks(m, v));
    w.u8(55, v.levelCode);
    w.u8(56, volumeMemberDisks(m, v));
    w.u8(57, v.levelCode);
    w.u8(58, v.raidSet);
    w.u32(60, v.hostSpeed);
    w.u32(64, volumeState(v));
    w.u8(85, v.encryptionType);
    w.u8(86, v.encrypted ? 1 : 0);
    w.text(94, 16, v.serial);
    return w.take();
}

Bytes diskInfo(const Model &m, unsigned slot, unsigned enc) {
    PayloadWriter w(272);
    // A record of capacity 0 is reported as it is: readers treat it as an empty slot.
    const Disk *d = m.slotRecord(enc, slot);
    if (!d) return w.take();
    w.text(0, 40, d->model);
    w.text(40, 20, d->serial);
    w.text(60, 8, d->firmware);
    w.u64(68, d->blocks);
    w.u8(76, d->state);
    w.u8(77, d->pioMode);
    w.u8(78, d->currentUdma);
    w.u8(79, d->udma);
    w.u8(80, d->driveSelect);
    w.u8(81, d->raidSet);
    w.raw(82, std::array<uint8_t, 6>{d->scsi.channel, d->scsi.id, d->scsi.lun, d->scsi.tagged, d->scsi.cacheMode,
                                     d->scsi.speed});
    w.u32(88, d->mediaErrors);
    w.u32(92, d->timeouts);
    w.u64(96, d->sasAddress);
    if (d->sas) {
        w.u16(104, d->rpm);
        w.u16(106, d->temperature);
        w.u16(108, d->smartSense);
        w.u16(110, d->reserved);
        for (std::size_t i = 0; i < d->attributes.size(); ++i) w.u64(112 + 8 * i, d->attributes[i]);
    } else {
        for (std::size_t i = 0; i < d->smart.size(); ++i) {
            w.u16(104 + 4 * i, d->smart[i].index);
            w.u8(106 + 4 * i, d->smart[i].status);
            w.u8(107 + 4 * i, d->smart[i].threshold);
        }
    }
    return w.take();
}

// Identify: [0] disks present (capped at 255), [1..2] the exact count.
Bytes identify(const Model &m) {
    unsigned count = 0;
    for (unsigned e = 0; e < kEnclosureCount; ++e)
        for (unsigned s = 0; s < m.enclosures[e].slots.size(); ++s)
            if (m.disk(e, s)) ++count;
    PayloadWriter w(4);
    w.u8(0, static_cast<uint8_t>(std::min(count, 255u)));
    w.u16(1, static_cast<uint16_t>(count));
    return w.take();
}

}  // namespace

Outcome inventoryCommand(Context &ctx) {
    const Request &r = ctx.req;
    switch (r.cmd()) {
    case 0x13: return data(identify(ctx.model));
    case 0x20: return data(raidSetInfo(ctx.model, r.at(6)));
    case 0x21: return data(volumeInfo(ctx.model, r.at(6)));
    case 0x22: return data(diskInfo(ctx.model, r.at(6), r.at(7)));
    case 0x23: return data(systemInfo(ctx.model));
    default: return reply(result::Unsupported);
    }
}

}  // namespace tovra::sim
