// Request frame checks and reply frame building.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace tovra::sim {

using Bytes = std::vector<uint8_t>;

// True when the buffer holds a well-formed request frame with a good checksum
// (the password requests of length 17 sum only bytes 3..20 and store at 22).
bool requestValid(const uint8_t *buf, std::size_t size);

// 5E 01 61, LE16 length, payload, checksum over bytes 3..4+L.
Bytes replyFrame(const Bytes &payload);
inline Bytes letter(char c) { return Bytes{static_cast<uint8_t>(c)}; }

// Fixed-size payload builder with little-endian and padded-text writers.
class PayloadWriter {
public:
    explicit PayloadWriter(std::size_t size) : bytes_(size, 0) {}
    void u8(std::size_t at, uint8_t v) { bytes_.at(at) = v; }
    void u16(std::size_t at, uint16_t v);
    void u32(std::size_t at, uint32_t v);
    void u64(std::size_t at, uint64_t v);
    void f32(std::size_t at, float v);
    // Copies up to width bytes of text; the rest is filled with pad.
    void text(std::size_t at, std::size_t width, std::string_view s, uint8_t pad = ' ');
    template <class Array> void raw(std::size_t at, const Array &a) {
        for (std::size_t i = 0; i < a.size(); ++i) bytes_.at(at + i) = static_cast<uint8_t>(a[i]);
    }
    Bytes take() { return std::move(bytes_); }

private:
    uint8_t *span(std::size_t at, std::size_t n);
    Bytes bytes_;
};

}  // namespace tovra::sim
