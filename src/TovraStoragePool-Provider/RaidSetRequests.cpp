#include "RaidSetRequests.h"

#include "MethodCommand.h"

#include <algorithm>
#include <array>
#include <cstring>

using tovra::sendFrame;
using namespace tovra::wire;

namespace {

constexpr uint8_t kBlank = 0x20;
constexpr std::size_t kNameWidth = 16;
// Pairs of an expand request start at [11]; its checksum sits at [1029]; the
// count byte [7] bounds them before the frame does.
constexpr std::size_t kExpandPairsAt = 11;
static_assert(kExpandPairsAt + 2 * kMaxExpandMembers <= 1029);

const tovra::CommandPlan kRaidSetCommand{ParseRAIDSetCommandCode};

bool sendSetNumber(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *m, uint8_t command, uint8_t raid_no) {
    const uint8_t params[] = {static_cast<uint8_t>(raid_no - 1)};
    return sendFrame(rc, fd, m, command, 2, params);
}

// [6..9] FF FF FF FF, [10] enclosure - 1, [11] disk - 1, then `rest`.
template <std::size_t N>
bool sendHotSpare(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *m, uint8_t command, uint16_t length, uint8_t enc,
                  uint8_t disk, const std::array<uint8_t, N> &rest) {
    std::array<uint8_t, 6 + N> params{0xFF, 0xFF, 0xFF, 0xFF, static_cast<uint8_t>(enc - 1),
                                      static_cast<uint8_t>(disk - 1)};
    std::copy(rest.begin(), rest.end(), params.begin() + 6);
    return sendFrame(rc, fd, m, command, length, params);
}

template <class Send> CMPIStatus raidSetCommand(const CMPIBroker *broker, int fd, const char *caller, Send &&send) {
    return tovra::runCommand(broker, fd, caller, kRaidSetCommand, std::forward<Send>(send));
}

}  // namespace

// The whole ioctl buffer starts as blanks, so the name's unused bytes and
// everything up to the checksum not written below read 0x20. The disk byte of
// a pair is reduced by 1 only when the enclosure byte is 1.
bool SendCreateRAIDs(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *m, uint8_t disk_num, const std::string &name,
                     uint8_t enc, const std::vector<uint8_t> &disk, uint8_t mode) {
    const char *self = "SendCreateRAIDs";
    tovra::logAlert("%s: No.1\n", self);
    std::memset(m, kBlank, sizeof *m);
    uint8_t *b = m->messagedatabuffer;
    const std::size_t pairs = std::min<std::size_t>(disk.size(), (kMessageDataSize - 28) / 2);
    const auto length = static_cast<uint16_t>(22 + 2 * pairs);
    b[0] = kStart0, b[1] = kStart1, b[2] = kStart2;
    putLE16(b + 3, length);
    b[5] = 0x50;
    b[6] = disk_num;
    b[7] = b[8] = b[9] = 0;
    std::memcpy(b + 10, name.data(), std::min(name.size(), kNameWidth));
    b[26] = mode;
    for (std::size_t i = 0; i < pairs; ++i) {
        b[27 + 2 * i] = enc;
        b[28 + 2 * i] = enc == 1 ? static_cast<uint8_t>(disk[i] - 1) : disk[i];
    }
    const uint8_t checksum = frameChecksum(b, length);
    b[5 + length] = checksum;
    tovra::logAlert("%s: No.2 chksum = 0x%x\n", self, checksum);
    for (int line = 0; line < 5; ++line) {
        const uint8_t *p = b + 8 * line;
        tovra::logAlert("%s:%02x%02x%02x%02x%02x%02x%02x%02x\n", self, p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7]);
    }
    const bool sent = tovra::sendRequest(fd, m);
    if (!sent) *rc = tovra::failedStatus();
    tovra::logAlert("%s: Ending(0x%x)\n", self, rc->rc);
    return sent;
}

bool SendDeleteRAIDs(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *m, uint8_t raid_no) {
    return sendSetNumber(rc, fd, m, 0x51, raid_no);
}

bool SendExpandRAIDs(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *m, uint8_t raid_no, std::size_t memberdisks,
                     const std::vector<uint8_t> &diskArray, const std::vector<uint8_t> &encArray) {
    if (memberdisks > kMaxExpandMembers) {
        *rc = tovra::failedStatus();
        return false;
    }
    std::array<uint8_t, 1023> params{};
    params[0] = static_cast<uint8_t>(raid_no - 1);
    params[1] = static_cast<uint8_t>(memberdisks);
    const std::size_t pairs = std::min(memberdisks, diskArray.size());
    for (std::size_t i = 0; i < pairs; ++i) {
        const uint8_t enc = i < encArray.size() ? encArray[i] : 0;
        params[kExpandPairsAt - 6 + 2 * i] = static_cast<uint8_t>(enc - 1);
        params[kExpandPairsAt - 5 + 2 * i] = static_cast<uint8_t>(diskArray[i] - 1);
    }
    return sendFrame(rc, fd, m, 0x52, 1024, params);
}

bool SendOffLineRAIDs(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *m, uint8_t raid_no) {
    return sendSetNumber(rc, fd, m, 0x56, raid_no);
}

bool SendActivateRAIDs(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *m, uint8_t raid_no) {
    return sendSetNumber(rc, fd, m, 0x53, raid_no);
}

bool SendCreateHotSpare(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *m, uint8_t enc, uint8_t disk, uint8_t type,
                        uint8_t raid_no) {
    return sendHotSpare(rc, fd, m, 0x54, 10, enc, disk, std::array<uint8_t, 3>{type, static_cast<uint8_t>(raid_no - 1), 0});
}

bool SendDeleteHotSpare(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *m, uint8_t enc, uint8_t disk) {
    return sendHotSpare(rc, fd, m, 0x55, 11, enc, disk, std::array<uint8_t, 4>{});
}

CMPIStatus CreateRAIDSet(const CMPIBroker *broker, int fd, uint8_t disk_num, const std::string &name, uint8_t enc,
                         const std::vector<uint8_t> &disk, uint8_t mode) {
    tovra::logAlert("%s: Sarting\n", "CreateRAIDSet");
    return raidSetCommand(broker, fd, "CreateRAIDSet", [&](CMPIStatus *rc, int f, CMD_MESSAGE_FIELD *m) {
        return SendCreateRAIDs(rc, f, m, disk_num, name, enc, disk, mode);
    });
}

CMPIStatus DeleteRAIDSet(const CMPIBroker *broker, int fd, uint8_t raid_no) {
    return raidSetCommand(broker, fd, "DeleteRAIDSet", [&](CMPIStatus *rc, int f, CMD_MESSAGE_FIELD *m) {
        return SendDeleteRAIDs(rc, f, m, raid_no);
    });
}

CMPIStatus ExpandRAIDSet(const CMPIBroker *broker, int fd, uint8_t raid_no, std::size_t memberdisks,
                         const std::vector<uint8_t> &diskArray, const std::vector<uint8_t> &encArray) {
    return raidSetCommand(broker, fd, "ExpandRAIDSet", [&](CMPIStatus *rc, int f, CMD_MESSAGE_FIELD *m) {
        return SendExpandRAIDs(rc, f, m, raid_no, memberdisks, diskArray, encArray);
    });
}

CMPIStatus OffLineRAIDSet(const CMPIBroker *broker, int fd, uint8_t raid_no) {
    return raidSetCommand(broker, fd, "OffLineRAIDSet", [&](CMPIStatus *rc, int f, CMD_MESSAGE_FIELD *m) {
        return SendOffLineRAIDs(rc, f, m, raid_no);
    });
}

CMPIStatus ActivateRAIDSet(const CMPIBroker *broker, int fd, uint8_t raid_no) {
    return raidSetCommand(broker, fd, "ActivateRAIDSet", [&](CMPIStatus *rc, int f, CMD_MESSAGE_FIELD *m) {
        return SendActivateRAIDs(rc, f, m, raid_no);
    });
}

CMPIStatus CreateHotSpare(const CMPIBroker *broker, int fd, uint8_t enc, uint8_t disk, uint8_t type,
                          uint8_t raid_no) {
    return raidSetCommand(broker, fd, "CreateHotSpare", [&](CMPIStatus *rc, int f, CMD_MESSAGE_FIELD *m) {
        return SendCreateHotSpare(rc, f, m, enc, disk, type, raid_no);
    });
}

CMPIStatus DeleteHotSpare(const CMPIBroker *broker, int fd, uint8_t enc, uint8_t disk) {
    return raidSetCommand(broker, fd, "DeleteHotSpare", [&](CMPIStatus *rc, int f, CMD_MESSAGE_FIELD *m) {
        return SendDeleteHotSpare(rc, f, m, enc, disk);
    });
}
