// A firmware image named by a client: read whole from the host's file system,
// checked for a sane size, and cut into the pages of the 0x1F page request.
// What the image holds is the adapter's business: it checks the header and
// the CRC itself and refuses a bad image.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "ControllerSettings.h"

namespace tovra {

// The page number is 16 bits wide; the adapter's flash is far smaller.
inline constexpr std::size_t kMaxFirmwareImageSize = 16u * 1024 * 1024;

struct FirmwareImage {
    std::vector<uint8_t> bytes;

    std::size_t pageCount() const { return (bytes.size() + kFirmwarePageSize - 1) / kFirmwarePageSize; }
    // Page i; the last one may be shorter (its frame is zero-filled).
    std::span<const uint8_t> page(std::size_t i) const {
        const std::size_t first = i * kFirmwarePageSize;
        return std::span<const uint8_t>(bytes).subspan(first, std::min(kFirmwarePageSize, bytes.size() - first));
    }
};

// Reads the image; on failure returns false with the reason, worded to follow
// "Argument FileName in <method> Method Command ".
bool loadFirmwareImage(const std::string &path, FirmwareImage &image, std::string &error);

}  // namespace tovra
