// The simulated adapter's firmware image format, for tests and tools that need
// an image the adapter accepts (or one it must refuse).
//
//   [0..3]   "TVFW"
//   [4..7]   image length in bytes, header included (LE32), 64 to 16 MiB
//   [8..11]  CRC-32 (IEEE) of the whole image with these four bytes zero (LE32)
//   [12..27] firmware version text, NUL-padded
//   [28..63] zero
//   [64..]   body
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tovrasim/Simulator.h"

namespace tovra::sim {

inline constexpr std::size_t kFirmwareHeaderSize = 64;
inline constexpr std::size_t kFirmwareMaxImage = 16u * 1024 * 1024;

// The CRC the adapter checks: over the image with bytes 8..11 taken as zero.
TOVRASIM_API uint32_t firmwareImageCrc(const std::vector<uint8_t> &image);
// A valid image of the given version with `bodyBytes` bytes of patterned body.
TOVRASIM_API std::vector<uint8_t> makeFirmwareImage(const std::string &version, std::size_t bodyBytes);

}  // namespace tovra::sim
