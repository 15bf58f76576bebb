// The driver side of the device: the four ioctl codes, replies held per
// descriptor and handed out in chunks, with the faults of each exchange.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "Engine.h"
#include "Firmware.h"
#include "Wire.h"

namespace tovra::sim {

using namespace tovra::wire;

namespace {

// Garbage looks almost like a frame start, so only a full three-byte check skips it.
const Bytes kGarbage = {kStart0, kStart1, 0x00, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE};

bool isDriverSend(const CMD_MESSAGE_FIELD *m, uint8_t command) {
    const uint8_t *b = m->messagedatabuffer;
    return hasFrameStart(b) && b[5] == command;
}

}  // namespace

int Engine::ioctlDevice(int fd, unsigned long request, void *arg) {
    if (!arg) {
        errno = EFAULT;
        return -1;
    }
    auto *m = static_cast<CMD_MESSAGE_FIELD *>(arg);
    Lock lock(mutex);
    ensureModel();
    switch (request) {
    case kIoctlWrite: return sendFirmware(fd, m);
    case kIoctlRead: return readChunk(fd, m);
    case kIoctlDriverInfo: return isDriverSend(m, 0x02) ? sendDriver(fd, 0x02) : readChunk(fd, m);
    case kIoctlPciInfo:
        if (isDriverSend(m, 0x03)) return sendDriver(fd, 0x03);
        errno = EINVAL;
        return -1;
    default: errno = ENOTTY; return -1;
    }
}

bool Engine::beginExchange(uint8_t command, ExchangeFaults &x) {
    ++counters[command];
    ++totalExchanges;
    x = faults.onExchange(command);
    if (x.writeFail) errno = EIO;
    return !x.writeFail;
}

int Engine::sendFirmware(int fd, CMD_MESSAGE_FIELD *m) {
    // Another process sharing the state file may have changed the adapter.
    SharedState::Guard guard(&shared);
    syncFromState();
    const uint8_t *buf = m->messagedatabuffer;
    const auto *whole = reinterpret_cast<const uint8_t *>(m);
    lastRequests[buf[5]] = lastRequests[-1] = Bytes(whole, whole + sizeof *m);
    ExchangeFaults x;
    if (!beginExchange(buf[5], x)) return -1;
    // The firmware acts on the request even when its reply is then lost.
    Outcome outcome{letter('L')};
    if (requestValid(buf, kMessageDataSize)) outcome = runFirmware(model, Request{buf, getLE16(buf + 3)}, eventTime());
    if (outcome.changed) saveState();
    queueReply(fd, outcome.payload, x);
    return 0;
}

int Engine::sendDriver(int fd, uint8_t command) {
    SharedState::Guard guard(&shared);
    syncFromState();
    ExchangeFaults x;
    if (!beginExchange(command, x)) return -1;
    queueReply(fd, command == 0x02 ? driverInfoPayload(model) : pciInfoPayload(model), x);
    return 0;
}

void Engine::queueReply(int fd, const Bytes &payload, const ExchangeFaults &x) {
    PendingReply p;
    p.chunk = std::clamp<unsigned>(x.chunk.value_or(chunk), 1, kMessageDataSize);
    p.never = x.noReply;
    p.readFail = x.readFail;
    if (x.delayMs) p.readyAt = clock.after(static_cast<int64_t>(x.delayMs) * 1000000);
    for (unsigned i = 0; i < x.garbageChunks; ++i) p.segments.push_back(kGarbage);
    Bytes frame = x.zeroLength ? replyFrame({}) : replyFrame(payload);
    if (x.badChecksum) frame.back() ^= 0xFF;
    p.segments.push_back(std::move(frame));
    pending[fd] = std::move(p);
}

int Engine::readChunk(int fd, CMD_MESSAGE_FIELD *m) {
    m->cmdmessage.Length = 0;
    const auto it = pending.find(fd);
    if (it == pending.end()) {
        clock.idle();
        return 0;
    }
    PendingReply &p = it->second;
    if (p.readFail) {
        errno = EIO;
        return -1;
    }
    if (p.never || (p.readyAt && !clock.reached(*p.readyAt))) {
        clock.idle();
        return 0;
    }
    const Bytes &segment = p.segments.front();
    const std::size_t n = std::min<std::size_t>(p.chunk, segment.size() - p.offset);
    std::memcpy(m->messagedatabuffer, segment.data() + p.offset, n);
    m->cmdmessage.Length = static_cast<uint32_t>(n);
    p.offset += n;
    if (p.offset == segment.size()) {
        p.segments.pop_front();
        p.offset = 0;
        if (p.segments.empty()) pending.erase(it);
    }
    return 0;
}

}  // namespace tovra::sim
