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

// What the adapter accepts as a setting's value.
enum class Rule : uint8_t { Mask, Address, Port, Max };

struct SettingDef {
    const char *name;
    uint8_t s16, s17, s18;
    uint8_t width;
    Rule rule;
    uint8_t max = 0;  // Rule::Max: the largest value
};

constexpr SettingDef kSettings[] = {
    {"NetMask", 0x01, 0x14, 0x00, 4, Rule::Mask},          {"Gateway", 0x01, 0x88, 0x00, 4, Rule::Address},
    {"NCQ", 0x01, 0x9B, 0x00, 1, Rule::Max, 1},            {"DiskCache", 0x01, 0x9F, 0x00, 1, Rule::Max, 1},
    {"Truncation", 0x01, 0xEF, 0x00, 1, Rule::Max, 2},     {"CPUFan", 0x01, 0xF9, 0x00, 1, Rule::Max, 1},
    {"HttpPort", 0x01, 0xD6, 0x00, 2, Rule::Port},         {"TelnetPort", 0x01, 0xF0, 0x00, 2, Rule::Port},
    {"SMTPPort", 0x01, 0x02, 0x03, 2, Rule::Port},         {"HDDReadAhead", 0x01, 0x01, 0x03, 1, Rule::Max, 3},
    {"HDDLED", 0x01, 0x08, 0x03, 1, Rule::Max, 1},         {"AutoActivate", 0x01, 0x0C, 0x03, 1, Rule::Max, 1},
    {"HDDQdepth", 0x01, 0x14, 0x03, 1, Rule::Max, 32},     {"SASMux", 0x01, 0x15, 0x03, 1, Rule::Max, 1},
    {"VolReadAhead", 0x01, 0x17, 0x03, 1, Rule::Max, 3},   {"SES2Support", 0x01, 0x18, 0x03, 1, Rule::Max, 1},
    {"MAXCMDLen", 0x01, 0x27, 0x03, 1, Rule::Max, 255},    {"WriteSame", 0x01, 0x34, 0x03, 1, Rule::Max, 1},
    {"HPDRebuilding", 0x01, 0x36, 0x03, 1, Rule::Max, 1},
};

// A checked password allows changes for this long.
constexpr uint32_t kUnlockSeconds = 600;

bool valueAccepted(const SettingDef &def, const uint8_t *v) {
    switch (def.rule) {
    case Rule::Mask: {
        const uint32_t mask = (uint32_t{v[0]} << 24) | (uint32_t{v[1]} << 16) | (uint32_t{v[2]} << 8) | v[3];
        return mask != 0 && (~mask & (~mask + 1)) == 0;  // ones, then only zeros
    }
    case Rule::Address: return true;
    case Rule::Port: return wire::getLE16(v) != 0;
    case Rule::Max: return v[0] <= def.max;
    }
    return false;
}

// A unicast address a management port can take.
bool hostAddress(const uint8_t *a) {
    const bool all0 = a[0] == 0 && a[1] == 0 && a[2] == 0 && a[3] == 0;
    return !all0 && a[0] < 224;
}

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
    if (n != def->width || !valueAccepted(*def, r.buf + at)) return reply(result::BadParameter);
    ctx.model.settings.values[def->name] = Bytes(r.buf + at, r.buf + at + n);
    return reply(result::Ok, true);
}

Outcome family1F(Context &ctx) {
    const Request &r = ctx.req;
    if (!signatureOk(r)) return reply(result::BadParameter);
    switch (r.len) {
    case 526: return counts(ctx.model, r.at(15));
    case 527: return firmwarePage(ctx);
    case 1024: return setting(ctx);
    default: return reply(result::BadParameter);
    }
}

// Every command here but the password check and the counts query changes
// the adapter: with a password set, it must have been checked first.
bool passwordRequired(const Context &ctx) {
    const Request &r = ctx.req;
    const bool changes = r.cmd() != 0x14 && !(r.cmd() == 0x1F && r.len == 526);
    return changes && !ctx.model.password.empty() && ctx.now > ctx.model.settings.unlockedUntil;
}

}  // namespace

Outcome settingsCommand(Context &ctx) {
    const Request &r = ctx.req;
    Model &m = ctx.model;
    if (passwordRequired(ctx)) return reply(result::PasswordRequired);
    switch (r.cmd()) {
    case 0x14: {
        if (r.at(6) > kMaxPassword) return reply(result::BadParameter);
        const bool good = passwordAt(r) == m.password;
        m.settings.unlockedUntil = good ? ctx.now + kUnlockSeconds : 0;
        return reply(good ? result::Ok : result::BadPassword, true);
    }
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
        if (!hostAddress(r.buf + 7)) return reply(result::BadParameter);
        std::copy(r.buf + 7, r.buf + 11, m.controller.localIp.begin());
        if (!m.controller.dhcp) m.controller.currentIp = m.controller.localIp;
        ctx.event(0, "Controller", "IP Address Changed");
        return reply(result::Ok, true);
    default: return reply(result::Unsupported);
    }
}

}  // namespace tovra::sim
