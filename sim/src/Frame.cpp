#include "Frame.h"

#include <cstring>
#include <stdexcept>

#include "Wire.h"

namespace tovra::sim {

using namespace tovra::wire;

bool requestValid(const uint8_t *buf, std::size_t size) {
    if (size < 7 || !hasFrameStart(buf)) return false;
    const uint16_t len = getLE16(buf + 3);
    if (len == 0 || 5u + len >= size) return false;
    const uint8_t cmd = buf[5];
    if (isPasswordRequest(cmd, len)) return sum8(buf, 3, 20) == buf[22];
    return frameChecksum(buf, len) == buf[5 + len];
}

Bytes replyFrame(const Bytes &payload) {
    Bytes f(payload.size() + 6, 0);
    f[0] = kStart0;
    f[1] = kStart1;
    f[2] = kStart2;
    putLE16(f.data() + 3, static_cast<uint16_t>(payload.size()));
    if (!payload.empty()) std::memcpy(f.data() + 5, payload.data(), payload.size());
    f.back() = frameChecksum(f.data(), static_cast<uint16_t>(payload.size()));
    return f;
}

uint8_t *PayloadWriter::span(std::size_t at, std::size_t n) {
    if (at + n > bytes_.size()) throw std::out_of_range("payload field out of range");
    return bytes_.data() + at;
}

void PayloadWriter::u16(std::size_t at, uint16_t v) { putLE16(span(at, 2), v); }
void PayloadWriter::u32(std::size_t at, uint32_t v) { putLE32(span(at, 4), v); }
void PayloadWriter::u64(std::size_t at, uint64_t v) { putLE64(span(at, 8), v); }

void PayloadWriter::f32(std::size_t at, float v) {
    uint32_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    u32(at, bits);
}

void PayloadWriter::text(std::size_t at, std::size_t width, std::string_view s, uint8_t pad) {
    uint8_t *p = span(at, width);
    for (std::size_t i = 0; i < width; ++i) p[i] = i < s.size() ? static_cast<uint8_t>(s[i]) : pad;
}

}  // namespace tovra::sim
