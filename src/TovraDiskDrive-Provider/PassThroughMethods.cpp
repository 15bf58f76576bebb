#include "PassThroughMethods.h"

#include "MethodCommand.h"

#include <array>
#include <string>
#include <string_view>

using tovra::ArgReader;

namespace {

// [6] enclosure - 1, [7] slot - 1, [8] 0, [9] id, [10] LUN, [11] tag, [12] cache, [13] 0.
bool sendTarget(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *m, uint8_t command, uint8_t enc, uint8_t disk, uint8_t id,
                uint8_t lun, uint8_t tag, uint8_t cache) {
    const std::array<uint8_t, 8> params{static_cast<uint8_t>(enc - 1), static_cast<uint8_t>(disk - 1), 0, id, lun,
                                        tag, cache, 0};
    return tovra::sendFrame(rc, fd, m, command, 9, params);
}

// A request that could not be written leaves the operation at success with no text.
template <class Send>
CMPIStatus passThroughCommand(const CMPIBroker *broker, int fd, const char *allocFailed, const char *caller,
                              Send &&send) {
    const tovra::CommandPlan plan{ParseDiskDriveCommandCode, allocFailed, tovra::OnSendFailure::Success};
    return tovra::runCommand(broker, fd, caller, plan, std::forward<Send>(send));
}

// The target of a pass-through method: "enc" (not 0) and "slt", then for
// create and modify "id", "lun", "tag" and "cache", all by their low byte.
struct Target {
    uint8_t enc, slot, id = 0, lun = 0, tag = 0, cache = 0;
};

Target readTarget(const ArgReader &args, const std::string &method, bool settings) {
    auto byte = [&](const char *name) {
        const std::string missing = std::string("Argument ") + name + " not present in " + method + " Method Command.";
        return args.byte(name, missing.c_str());
    };
    Target t{byte("enc"), 0};
    if (t.enc == 0) tovra::failMethod(("Argument enc is incorrect in " + method + " Method Command.").c_str());
    t.slot = byte("slt");
    if (!settings) return t;
    t.id = byte("id");
    t.lun = byte("lun");
    t.tag = byte("tag");
    t.cache = byte("cache");
    return t;
}

// A pass-through change makes the disk, pool and volume caches stale.
template <class Operation>
CMPIStatus passThroughMethod(const CMPIBroker *broker, const CMPIContext *ctx, const CMPIResult *rslt,
                             const std::string &method, Operation &&op) {
    const std::string openFailed = method + ": File Open Failed.";
    return tovra::deviceMethod(broker, ctx, rslt, openFailed.c_str(),
                               {"Tovra_DiskDrive", "Tovra_StoragePool", "Tovra_StorageVolume"},
                               [&](int fd) { return op(fd); });
}

}  // namespace

bool SendCreatePassThrough(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *m, uint8_t enc, uint8_t disk, uint8_t id,
                           uint8_t lun, uint8_t tag, uint8_t cache) {
    return sendTarget(rc, fd, m, 0x40, enc, disk, id, lun, tag, cache);
}

bool SendModifyPassThrough(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *m, uint8_t enc, uint8_t disk, uint8_t id,
                           uint8_t lun, uint8_t tag, uint8_t cache) {
    return sendTarget(rc, fd, m, 0x41, enc, disk, id, lun, tag, cache);
}

bool SendDeletePassThrough(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *m, uint8_t enc, uint8_t disk) {
    const uint8_t params[] = {static_cast<uint8_t>(enc - 1), static_cast<uint8_t>(disk - 1)};
    return tovra::sendFrame(rc, fd, m, 0x42, 3, params);
}

CMPIStatus CreatePassThrough(const CMPIBroker *broker, int fd, uint8_t enc, uint8_t disk, uint8_t id, uint8_t lun,
                             uint8_t tag, uint8_t cache) {
    return passThroughCommand(broker, fd, "CreatePassThrough: Memory Allocation Failed.", "CreatePassThrough",
                              [&](CMPIStatus *rc, int f, CMD_MESSAGE_FIELD *m) {
                                  return SendCreatePassThrough(rc, f, m, enc, disk, id, lun, tag, cache);
                              });
}

CMPIStatus ModifyPassThrough(const CMPIBroker *broker, int fd, uint8_t enc, uint8_t disk, uint8_t id, uint8_t lun,
                             uint8_t tag, uint8_t cache) {
    return passThroughCommand(broker, fd, "ModifyPassThrough: Memory Allocation Failed.", "ModifyPassThrough",
                              [&](CMPIStatus *rc, int f, CMD_MESSAGE_FIELD *m) {
                                  return SendModifyPassThrough(rc, f, m, enc, disk, id, lun, tag, cache);
                              });
}

CMPIStatus DeletePassThrough(const CMPIBroker *broker, int fd, uint8_t enc, uint8_t disk) {
    return passThroughCommand(broker, fd, "DeletePassThrough: Memory Allocation Failed.", "DeletePassThrough",
                              [&](CMPIStatus *rc, int f, CMD_MESSAGE_FIELD *m) {
                                  return SendDeletePassThrough(rc, f, m, enc, disk);
                              });
}

// "CreatePassThrough" reads its argument count but does not test it; the
// other two require an exact count.
CMPIStatus invokePassThroughMethod(const CMPIBroker *broker, const CMPIContext *ctx, const CMPIResult *rslt,
                                   const char *method, const CMPIArgs *in) {
    const std::string_view name = method != nullptr ? method : "";
    const ArgReader args(in);
    if (name == "CreatePassThrough") {
        static_cast<void>(args.count());
        const Target t = readTarget(args, "CreatePassThrough", true);
        return passThroughMethod(broker, ctx, rslt, "CreatePassThrough", [&](int fd) {
            return CreatePassThrough(broker, fd, t.enc, t.slot, t.id, t.lun, t.tag, t.cache);
        });
    }
    if (name == "DeletePassThrough") {
        tovra::requireArgCount("DeletePassThrough", args.count(), 2);
        const Target t = readTarget(args, "DeletePassThrough", false);
        return passThroughMethod(broker, ctx, rslt, "DeletePassThrough",
                                 [&](int fd) { return DeletePassThrough(broker, fd, t.enc, t.slot); });
    }
    if (name == "ModifyPassThrough") {
        tovra::requireArgCount("ModifyPassThrough", args.count(), 6);
        const Target t = readTarget(args, "ModifyPassThrough", true);
        return passThroughMethod(broker, ctx, rslt, "ModifyPassThrough", [&](int fd) {
            return ModifyPassThrough(broker, fd, t.enc, t.slot, t.id, t.lun, t.tag, t.cache);
        });
    }
    CMReturnDone(rslt);
    return tovra::okStatus();
}
