// Command 0x1B: enclosure property, sensor descriptions and values, battery.
#include <algorithm>

#include "Firmware.h"

namespace tovra::sim {

namespace {

constexpr std::size_t kSensorNameWidth = 24;

const Enclosure *enclosureAt(const Model &m, unsigned index) {
    return index < kEnclosureCount && m.enclosures[index].present ? &m.enclosures[index] : nullptr;
}

uint8_t countOf(const Enclosure *e, SensorKind kind) {
    if (!e) return 0;
    return static_cast<uint8_t>(
        std::count_if(e->sensors.begin(), e->sensors.end(), [&](const Sensor &s) { return s.kind == kind; }));
}

Bytes property(const Model &m, unsigned index) {
    PayloadWriter w(64);
    const Enclosure *e = enclosureAt(m, index);
    if (!e) return w.take();
    w.text(0, 8, e->vendor);
    w.text(8, 16, e->product);
    w.text(24, 4, e->revision);
    w.u8(28, e->type);
    w.u8(29, e->number.value_or(static_cast<uint8_t>(index)));
    w.u8(30, e->rawSlots.value_or(static_cast<uint8_t>(e->slots.size())));
    w.u8(31, countOf(e, SensorKind::Voltage));
    w.u8(32, countOf(e, SensorKind::Fan));
    w.u8(33, countOf(e, SensorKind::Power));
    w.u8(34, countOf(e, SensorKind::Temperature));
    return w.take();
}

// [0] count, then one 24-byte NUL-padded name per sensor of the kind.
Bytes descriptions(const Model &m, unsigned index, SensorKind kind) {
    const Enclosure *e = enclosureAt(m, index);
    const uint8_t n = countOf(e, kind);
    PayloadWriter w(1 + kSensorNameWidth * n);
    w.u8(0, n);
    std::size_t at = 1;
    if (e)
        for (const Sensor &s : e->sensors)
            if (s.kind == kind) {
                w.text(at, kSensorNameWidth, s.name, 0);
                at += kSensorNameWidth;
            }
    return w.take();
}

// [0..3] voltage, fan, power, temperature counts, then each value as a
// little-endian float32, grouped in that kind order.
Bytes values(const Model &m, unsigned index) {
    const Enclosure *e = enclosureAt(m, index);
    constexpr SensorKind order[] = {SensorKind::Voltage, SensorKind::Fan, SensorKind::Power,
                                    SensorKind::Temperature};
    std::size_t total = 0;
    for (SensorKind k : order) total += countOf(e, k);
    PayloadWriter w(4 + 4 * total);
    std::size_t at = 4;
    for (std::size_t i = 0; i < 4; ++i) {
        w.u8(i, countOf(e, order[i]));
        if (!e) continue;
        for (const Sensor &s : e->sensors)
            if (s.kind == order[i]) {
                w.f32(at, s.value);
                at += 4;
            }
    }
    return w.take();
}

// [0] present, [1] charge %, [2] status, [3] temperature (signed), [4..5] millivolts.
Bytes battery(const Model &m, unsigned index) {
    PayloadWriter w(16);
    const Battery &b = m.battery;
    if (index != 0 || !b.present) return w.take();
    w.u8(0, 1);
    w.u8(1, b.charge);
    w.u8(2, b.status);
    w.u8(3, static_cast<uint8_t>(b.temperature));
    w.u16(4, b.millivolts);
    return w.take();
}

}  // namespace

Outcome enclosureCommand(Context &ctx) {
    const Request &r = ctx.req;
    const unsigned index = r.at(6);
    const uint8_t form = r.at(7);
    const uint8_t sub = r.len >= 4 ? r.at(8) : 0;
    switch (form) {
    case 0: return data(property(ctx.model, index));
    case 1:
        if (sub < 1 || sub > 4) break;
        return data(descriptions(ctx.model, index,
                                 sub == 1   ? SensorKind::Voltage
                                 : sub == 2 ? SensorKind::Fan
                                 : sub == 3 ? SensorKind::Power
                                            : SensorKind::Temperature));
    case 2: return data(values(ctx.model, index));
    case 3: return data(battery(ctx.model, index));
    default: break;
    }
    return reply(result::BadParameter);
}

}  // namespace tovra::sim
