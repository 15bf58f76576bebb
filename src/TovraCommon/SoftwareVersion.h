// Splits a version text into the numeric fields of a software identity.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

namespace tovra {

// Up to four numbers (major, minor, revision, build) in the order they stand.
struct VersionNumbers {
    std::array<uint16_t, 4> part{};
    unsigned count = 0;
};

// Reads the leading dotted numbers of a version text after an optional "V"
// or "v": "V1.56 2023-04-12" gives 1.56, "v1.40.00.00-2023" 1.40.0.0,
// "01.01D02" 1.1, "0004" 4. Nullopt when the text does not start with a
// number, or a number does not fit 16 bits.
std::optional<VersionNumbers> parseVersion(const char *text);

}  // namespace tovra
