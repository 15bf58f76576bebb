// Firmware update: 0x1F pages of 512 data bytes ([17..18] page number, [19..]
// data), page 0 first and then in order. Page 0 must carry a sane header; once
// the declared length has arrived the image's CRC is checked and the new
// version takes effect. A refused page ends the upload.
#include <zlib.h>

#include <algorithm>
#include <cstring>

#include "Firmware.h"
#include "Wire.h"
#include "tovrasim/FirmwareImage.h"

namespace tovra::sim {

namespace {

constexpr std::size_t kPageData = 512;
constexpr uint8_t kMagic[4] = {'T', 'V', 'F', 'W'};

bool headerSane(const Bytes &image) {
    const uint32_t length = wire::getLE32(image.data() + 4);
    return std::equal(std::begin(kMagic), std::end(kMagic), image.begin()) && length >= kFirmwareHeaderSize &&
           length <= kFirmwareMaxImage;
}

Outcome refuse(Settings &s, char letter) {
    s.firmwareUpload.clear();
    return reply(letter);
}

}  // namespace

uint32_t firmwareImageCrc(const std::vector<uint8_t> &image) {
    std::vector<uint8_t> copy = image;
    if (copy.size() >= 12) std::fill(copy.begin() + 8, copy.begin() + 12, 0);
    return static_cast<uint32_t>(crc32(0L, copy.data(), static_cast<uInt>(copy.size())));
}

std::vector<uint8_t> makeFirmwareImage(const std::string &version, std::size_t bodyBytes) {
    std::vector<uint8_t> image(kFirmwareHeaderSize + bodyBytes, 0);
    std::copy(std::begin(kMagic), std::end(kMagic), image.begin());
    wire::putLE32(image.data() + 4, static_cast<uint32_t>(image.size()));
    std::copy_n(version.begin(), std::min<std::size_t>(version.size(), 16), image.begin() + 12);
    for (std::size_t i = 0; i < bodyBytes; ++i) image[kFirmwareHeaderSize + i] = static_cast<uint8_t>(i * 7 + 3);
    wire::putLE32(image.data() + 8, firmwareImageCrc(image));
    return image;
}

Outcome firmwarePage(Context &ctx) {
    Settings &s = ctx.model.settings;
    const unsigned page = wire::getLE16(ctx.req.buf + 17);
    s.lastFirmwarePage = page;
    if (page == 0) {
        s.firmwareUpload.clear();
        s.firmwarePages = 0;
    } else if (s.firmwareUpload.empty() || page != s.firmwarePages) {
        return refuse(s, result::FirmwareFailed);
    }
    Bytes &image = s.firmwareUpload;
    image.insert(image.end(), ctx.req.buf + 19, ctx.req.buf + 19 + kPageData);
    if (page == 0 && !headerSane(image)) return refuse(s, result::FirmwareInvalid);
    ++s.firmwarePages;
    const uint32_t length = wire::getLE32(image.data() + 4);
    if (image.size() < length) return reply(result::Ok);

    image.resize(length);
    if (firmwareImageCrc(image) != wire::getLE32(image.data() + 8)) return refuse(s, result::FirmwareCrc);
    const char *version = reinterpret_cast<const char *>(image.data() + 12);
    ctx.model.controller.firmware.assign(version, strnlen(version, 16));
    image.clear();
    ctx.event(0, "Controller", "Firmware Updated");
    return reply(result::Ok, true);
}

void putNetworkSettings(const Model &model, PayloadWriter &w) {
    const auto put = [&](std::size_t at, const char *name) {
        const auto it = model.settings.values.find(name);
        if (it != model.settings.values.end() && it->second.size() == 4) w.raw(at, it->second);
    };
    put(216, "NetMask");
    put(220, "Gateway");
}

}  // namespace tovra::sim
