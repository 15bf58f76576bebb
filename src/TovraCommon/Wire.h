// The driver's ioctl buffer and the request/reply frame shared with the
// adapter firmware. Pure definitions and byte helpers, no I/O: the channel and
// the simulator both build on them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace tovra::wire {

inline constexpr const char kDevicePath[] = "/vmfs/devices/char/vmkdriver/tovdrv";

// ioctl request codes (each takes a CMD_MESSAGE_FIELD*).
inline constexpr unsigned long kIoctlWrite = 0x44244101UL;
inline constexpr unsigned long kIoctlRead = 0x84244101UL;
inline constexpr unsigned long kIoctlDriverInfo = 0xC4244102UL;
inline constexpr unsigned long kIoctlPciInfo = 0xC4244103UL;

inline constexpr std::size_t kBufferSize = 1060;
inline constexpr std::size_t kMessageDataSize = 1032;

// Frame start bytes "^", 0x01, "a".
inline constexpr uint8_t kStart0 = 0x5E;
inline constexpr uint8_t kStart1 = 0x01;
inline constexpr uint8_t kStart2 = 0x61;

}  // namespace tovra::wire

// The wire structures keep the driver's names.
struct CMD_MESSAGE {
    uint32_t HeaderLength;
    uint8_t Signature[8];
    uint32_t Timeout;
    uint32_t ControlCode;
    uint32_t ReturnCode;
    uint32_t Length;
};

struct CMD_MESSAGE_FIELD {
    CMD_MESSAGE cmdmessage;
    uint8_t messagedatabuffer[1032];
};

static_assert(sizeof(CMD_MESSAGE) == 28, "CMD_MESSAGE is 28 bytes");
static_assert(offsetof(CMD_MESSAGE, Length) == 24, "Length at offset 24");
static_assert(sizeof(CMD_MESSAGE_FIELD) == 1060, "CMD_MESSAGE_FIELD is 1060 bytes");
static_assert(offsetof(CMD_MESSAGE_FIELD, messagedatabuffer) == 28, "data at offset 28");

namespace tovra::wire {

inline uint16_t getLE16(const uint8_t *p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }
inline uint32_t getLE32(const uint8_t *p) {
    return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
           (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
}
inline uint64_t getLE64(const uint8_t *p) {
    return static_cast<uint64_t>(getLE32(p)) | (static_cast<uint64_t>(getLE32(p + 4)) << 32);
}
inline void putLE16(uint8_t *p, uint16_t v) {
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
}
inline void putLE32(uint8_t *p, uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}
inline void putLE64(uint8_t *p, uint64_t v) {
    for (int i = 0; i < 8; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}

// Low byte of the sum of frame[first..last], both inclusive.
inline uint8_t sum8(const uint8_t *frame, std::size_t first, std::size_t last) {
    unsigned sum = 0;
    for (std::size_t i = first; i <= last; ++i) sum += frame[i];
    return static_cast<uint8_t>(sum);
}

// Checksum of a frame of payload length L: the sum of bytes 3..4+L, stored at 5+L.
inline uint8_t frameChecksum(const uint8_t *frame, uint16_t payloadLength) {
    return sum8(frame, 3, 4u + payloadLength);
}

// Whether bytes begin with the three frame start bytes.
inline bool hasFrameStart(const uint8_t *bytes) {
    return bytes[0] == kStart0 && bytes[1] == kStart1 && bytes[2] == kStart2;
}

// The password requests (0x14, 0x32 with 17 parameter bytes) keep their
// checksum at [22], the sum of bytes 3..20, instead of at 5+L.
inline bool isPasswordRequest(uint8_t command, uint16_t length) {
    return (command == 0x14 || command == 0x32) && length == 17;
}

}  // namespace tovra::wire
