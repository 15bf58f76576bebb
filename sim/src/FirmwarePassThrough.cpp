// Pass-through disks: create (0x40), modify (0x41), delete (0x42).
#include "Firmware.h"
#include "ModelRules.h"

namespace tovra::sim {

namespace {

constexpr uint8_t kMaxId = 15;
constexpr uint8_t kMaxLun = 7;

}  // namespace

Outcome passThroughCommand(Context &ctx) {
    const Request &r = ctx.req;
    const unsigned enc = r.at(6), slot = r.at(7);
    Disk *d = ctx.model.disk(enc, slot);
    if (!d) return reply(result::NoDisk);
    const DiskUsage usage = usageOf(d->state);
    const std::string label = diskLabel(enc, slot);

    if (r.cmd() == 0x42) {
        if (usage != DiskUsage::PassThrough) return reply(result::BadParameter);
        d->state = diskstate::Free;
        d->scsi = ScsiAttr{};
        ctx.event(0, label, "Delete Pass Through Disk");
        return reply(result::Ok, true);
    }

    const uint8_t id = r.at(9), lun = r.at(10);
    const bool create = r.cmd() == 0x40;
    if (usage != (create ? DiskUsage::Free : DiskUsage::PassThrough)) return reply(result::BadParameter);
    if (id > kMaxId || lun > kMaxLun || scsiTargetInUse(ctx.model, id, lun, -1, d))
        return reply(result::BadParameter);
    if (create) d->state = diskstate::PassThrough;
    d->scsi = ScsiAttr{0, id, lun, r.at(11), r.at(12), 0};
    ctx.event(0, label, create ? "Create Pass Through Disk" : "Modify Pass Through Disk");
    return reply(result::Ok, true);
}

}  // namespace tovra::sim
