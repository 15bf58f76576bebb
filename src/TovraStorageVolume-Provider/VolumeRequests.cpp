#include "VolumeRequests.h"

#include "MethodCommand.h"

#include <algorithm>
#include <array>
#include <cstring>

using tovra::sendFrame;

namespace {

constexpr uint8_t kFixedByte38 = 0x04;
const tovra::CommandPlan kVolumeCommand{ParseVolumeCommandCode};

// The part both create and modify share, from [6]: the set or volume byte,
// the name at [7..22], the capacity at [23..30], then level, stripe, 0, id,
// LUN, tag, cache and the fixed 0x04 at [31..38].
template <std::size_t N>
void volumeDefinition(std::array<uint8_t, N> &params, uint8_t number, const std::string &name, uint64_t blocks,
                      uint8_t level, uint8_t stripe, uint8_t id, uint8_t lun, uint8_t tag, uint8_t cache) {
    params[0] = static_cast<uint8_t>(number - 1);
    std::memcpy(params.data() + 1, name.data(), std::min<std::size_t>(name.size(), 16));
    tovra::wire::putLE64(params.data() + 17, blocks);
    const uint8_t tail[] = {level, stripe, 0, id, lun, tag, cache, kFixedByte38};
    std::copy(std::begin(tail), std::end(tail), params.begin() + 25);
}

template <class Send> CMPIStatus volumeCommand(const CMPIBroker *broker, int fd, const char *caller, Send &&send) {
    return tovra::runCommand(broker, fd, caller, kVolumeCommand, std::forward<Send>(send));
}

}  // namespace

uint64_t capacityBlocks(uint32_t cap) {
    return static_cast<uint64_t>(static_cast<double>(cap) * 1000000000.0 * 0.001953125);
}

bool SendCreateVolume(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *m, uint8_t raid_no, const std::string &name,
                      uint64_t capacity, uint8_t level, uint8_t stripe, uint8_t id, uint8_t lun, uint8_t tag,
                      uint8_t cache, uint8_t fginit, uint8_t gt2tb, uint8_t entype) {
    std::array<uint8_t, 41> params{};
    volumeDefinition(params, raid_no, name, capacity, level, stripe, id, lun, tag, cache);
    params[33] = static_cast<uint8_t>((gt2tb * 2) | fginit);
    params[34] = entype;
    return sendFrame(rc, fd, m, 0x60, 42, params);
}

bool SendModifyVolume(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *m, uint8_t vol_no, const std::string &name,
                      uint8_t level, uint64_t capacity, uint8_t stripe, uint8_t id, uint8_t lun, uint8_t tag,
                      uint8_t cache) {
    std::array<uint8_t, 37> params{};
    volumeDefinition(params, vol_no, name, capacity, level, stripe, id, lun, tag, cache);
    return sendFrame(rc, fd, m, 0x61, 38, params);
}

bool SendDeleteVolume(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *m, uint8_t vol_no) {
    const uint8_t params[] = {static_cast<uint8_t>(vol_no - 1)};
    return sendFrame(rc, fd, m, 0x62, 2, params);
}

CMPIStatus CreateVolume(const CMPIBroker *broker, int fd, uint8_t raid_no, const std::string &name, uint32_t cap,
                        uint8_t level, uint8_t stripe, uint8_t id, uint8_t lun, uint8_t tag, uint8_t cache,
                        uint8_t fg, uint8_t gt2tb, uint8_t encyp) {
    return volumeCommand(broker, fd, "CreateVolume", [&](CMPIStatus *rc, int f, CMD_MESSAGE_FIELD *m) {
        return SendCreateVolume(rc, f, m, raid_no, name, capacityBlocks(cap), level, stripe, id, lun, tag, cache, fg,
                                gt2tb, encyp);
    });
}

CMPIStatus ModifyVolume(const CMPIBroker *broker, int fd, uint8_t vol_no, const std::string &name, uint8_t level,
                        uint32_t capacity, uint8_t stripe, uint8_t id, uint8_t lun, uint8_t tag, uint8_t cache) {
    return volumeCommand(broker, fd, "ModifyVolume", [&](CMPIStatus *rc, int f, CMD_MESSAGE_FIELD *m) {
        return SendModifyVolume(rc, f, m, vol_no, name, level, capacityBlocks(capacity), stripe, id, lun, tag, cache);
    });
}

CMPIStatus DeleteVolume(const CMPIBroker *broker, int fd, uint8_t vol_no) {
    return volumeCommand(broker, fd, "DeleteVolume", [&](CMPIStatus *rc, int f, CMD_MESSAGE_FIELD *m) {
        return SendDeleteVolume(rc, f, m, vol_no);
    });
}
