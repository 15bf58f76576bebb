#include "SoftwareVersion.h"

#include <cctype>

namespace tovra {

namespace {

bool isDigit(char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; }

}  // namespace

std::optional<VersionNumbers> parseVersion(const char *text) {
    if (text == nullptr) return std::nullopt;
    const char *p = text;
    while (*p == ' ') ++p;
    if (*p == 'V' || *p == 'v') ++p;
    if (!isDigit(*p)) return std::nullopt;
    VersionNumbers v;
    while (v.count < v.part.size()) {
        uint32_t n = 0;
        for (; isDigit(*p); ++p) {
            n = n * 10 + static_cast<uint32_t>(*p - '0');
            if (n > 0xFFFF) return std::nullopt;
        }
        v.part[v.count++] = static_cast<uint16_t>(n);
        if (p[0] != '.' || !isDigit(p[1])) break;
        ++p;
    }
    return v;
}

}  // namespace tovra
