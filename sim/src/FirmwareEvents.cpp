// Event log: poll (0x19), get one event (0x1A), clear (0x24). Index 0 is the newest event.
#include "Firmware.h"

namespace tovra::sim {

namespace {

// [0..1] number of events, [2..5] time of the newest (0 when empty).
Bytes poll(const Model &m) {
    PayloadWriter w(6);
    w.u16(0, static_cast<uint16_t>(m.events.size()));
    w.u32(2, m.events.empty() ? 0 : m.events.front().time);
    return w.take();
}

// [0..3] time, [4] severity, [8..31] device, [32..95] message (NUL padded).
Bytes eventRecord(const Event &e) {
    PayloadWriter w(96);
    w.u32(0, e.time);
    w.u8(4, e.severity);
    w.text(8, 24, e.device, 0);
    w.text(32, 64, e.message, 0);
    return w.take();
}

}  // namespace

Outcome eventCommand(Context &ctx) {
    Model &m = ctx.model;
    switch (ctx.req.cmd()) {
    case 0x19: return data(poll(m));
    case 0x1A: {
        const unsigned index = ctx.req.at(6);
        if (index >= m.events.size()) return reply(result::EndOfData);
        return data(eventRecord(m.events[index]));
    }
    case 0x24: m.events.clear(); return reply(result::Ok, true);
    default: return reply(result::Unsupported);
    }
}

}  // namespace tovra::sim
