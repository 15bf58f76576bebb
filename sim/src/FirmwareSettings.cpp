// Controller settings: password (0x14 check, 0x32 set), beeper (0x30 mute,
// 0x31 set), mode (0x33), address (0x39) and the 0x1F family (counts query,
// firmware page upload, "A"/"B" settings forms).
#include <algorithm>
#include <cstring>

#include "Firmware.h"
#include "ModelRules.h"
#include "Wire.h"

namespace tovra::sim {

namespace {

constexpr char kSignature[] = "KeLpOrIn";
constexpr unsigned kMaxPassword = 15;  // bytes 7 to 21 of a 17-byte payload

struct SettingDef {
    const char *name;
    uint8_t s16, s17, s18;
    uint8_t width;
};

constexpr SettingDef kSettings[] = {
    {"NetMask", 0x01, 0x14, 0x00, 4},    {"Gateway", 0x01, 0x88, 0x00, 4},      {"NCQ", 0x01, 0x9B, 0x00, 1},
    {"DiskCache", 0x01, 0x9F, 0x00, 1},  {"Truncation", 0x01, 0xEF, 0x00, 1},   {"CPUFan", 0x01, 0xF9, 0x00, 1},
    {"HttpPort", 0x01, 0xD6, 0x00, 2},   {"TelnetPort", 0x01, 0xF0, 0x00, 2},   {"SMTPPort", 0x01, 0x02, 0x03, 2},
    {"HDDReadAhead", 0x01, 0x01, 0x03, 1}, {"HDDLED", 0x01, 0x08, 0x03, 1},     {"AutoActivate", 0x01, 0x0C, 0x03, 1},
    {"HDDQdepth", 0x01, 0x14, 0x03, 1},  {"SASMux", 0x01, 0x15, 0x03, 1},       {"VolReadAhead", 0x01, 0x17, 0x03, 1},
    {"SES2Support", 0x01, 0x18, 0x03, 1}, {"MAXCMDLen", 0x01, 0x27, 0x03, 1},   {"WriteSame", 0x01, 0x34, 0x03, 1},
    {"HPDRebuilding", 0x01, 0x36, 0x03, 1},
};

std::string passwordAt(const Request &r) {
    const unsigned n = r.at(6);
    std::string s;
    for (unsigned i = 0; i < n; ++i) s.push_back(static_cast<char>(r.at(7 + i)));
    return s;
}

bool signatureOk(const Request &r) {
    return r.at(6) == 0x08 && std::memcmp(r.buf + 7, kSignature, 8) == 0;
}

// Counts query: [0] count (capped at 255), [1..4] bitmap of RAID sets or volumes.
// Selectors: 1 enclosures, 2 disks, 3 hot spares, 4 RAID sets, 5 volumes, 6 pass-through disks.
Outcome counts(const Model &m, uint8_t selector) {
    unsigned count = 0;
    uint32_t bitmap = 0;
    if (selector == 4 || selector == 5) {
        const bool sets = selector == 4;
        const unsigned limit = sets ? kRaidSetCount : kVolumeCount;
        for (unsigned i = 0; i < limit; ++i)
            if (sets ? m.raidSets[i].has_value() : m.volumes[i].has_value()) {
                ++count;
                bitmap |= 1u << i;
            }
    } else if (selector == 1) {
        count = static_cast<unsigned>(
            std::count_if(m.enclosures.begin(), m.enclosures.end(), [](const Enclosure &e) { return e.present; }));
    } else if (selector >= 2 && selector <= 6) {
        for (unsigned e = 0; e < kEnclosureCount; ++e)
            for (unsigned s = 0; s < m.enclosures[e].slots.size(); ++s) {
                const Disk *d = m.disk(e, s);
                if (!d) continue;
                const DiskUsage u = usageOf(d->state);
                count += selector == 2 || (selector == 3 && u == DiskUsage::HotSpare) ||
                         (selector == 6 && u == DiskUsage::PassThrough);
            }
    } else {
        return reply(result::Unsupported);
    }
    PayloadWriter w(5);
    w.u8(0, static_cast<uint8_t>(std::min(count, 255u)));
    w.u32(1, bitmap);
    return data(w.take());
}

// Form "A": [16..18] selector, [19] n, [20..] value.
// Form "B": [16..18] selector, [21..22] n (LE16), [23..] value.
Outcome setting(Context &ctx) {
    const Request &r = ctx.req;
    const uint8_t form = r.at(15);
    if (form != 'A' && form != 'B') return reply(result::BadParameter);
    const auto def = std::find_if(std::begin(kSettings), std::end(kSettings), [&](const SettingDef &s) {
        return s.s16 == r.at(16) && s.s17 == r.at(17) && s.s18 == r.at(18);
    });
    if (def == std::end(kSettings)) return reply(result::Unsupported);
    const unsigned n = form == 'A' ? r.at(19) : wire::getLE16(r.buf + 21);
    const std::size_t at = form == 'A' ? 20 : 23;
    if (n != def->width) return reply(result::BadParameter);
    ctx.model.settings.values[def->name] = Bytes(r.buf + at, r.buf + at + n);
    return reply(result::Ok, true);
}

Outcome family1F(Context &ctx) {
    const Request &r = ctx.req;
    if (!signatureOk(r)) return reply(result::BadParameter);
    switch (r.len) {
    case 526: return counts(ctx.model, r.at(15));
    case 527: {  // firmware page: [17..18] page number, [19..] data
        Settings &s = ctx.model.settings;
        const unsigned page = wire::getLE16(r.buf + 17);
        s.firmwarePages = page == 0 ? 1 : s.firmwarePages + 1;
        s.lastFirmwarePage = page;
        return reply(result::Ok, true);
    }
    case 1024: return setting(ctx);
    default: return reply(result::BadParameter);
    }
}

}  // namespace

Outcome settingsCommand(Context &ctx) {
    const Request &r = ctx.req;
    Model &m = ctx.model;
    switch (r.cmd()) {
    case 0x14:
        if (r.at(6) > kMaxPassword) return reply(result::BadParameter);
        return reply(passwordAt(r) == m.password ? result::Ok : result::BadPassword);
    case 0x32:
        if (r.at(6) > kMaxPassword) return reply(result::BadParameter);
        m.password = passwordAt(r);
        ctx.event(0, "Controller", "Password Changed");
        return reply(result::Ok, true);
    case 0x1F: return family1F(ctx);
    case 0x30: m.settings.beeperMuted = true; return reply(result::Ok, true);
    case 0x31:
        if (r.at(6) > 1) return reply(result::BadParameter);
        m.controller.beeper = r.at(6);
        m.settings.beeperMuted = false;
        return reply(result::Ok, true);
    case 0x33: m.settings.mode = r.at(6); return reply(result::Ok, true);
    case 0x39:
        std::copy(r.buf + 7, r.buf + 11, m.controller.localIp.begin());
        if (!m.controller.dhcp) m.controller.currentIp = m.controller.localIp;
        ctx.event(0, "Controller", "IP Address Changed");
        return reply(result::Ok, true);
    default: return reply(result::Unsupported);
    }
}

}  // namespace tovra::sim
